#include "core/common/rpc/transport/fuzzing/fuzzed_service.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "core/common/rpc/stream/callback_stream.h"
#include "core/common/rpc/stream/event_stream.h"
#include "core/common/rpc/testing/window_id.h"

namespace rpc::transport {
namespace {

using Events = torvane::EventStream<lab::Text>;
using Questions = torvane::CallbackStream<lab::Decision>;

}  // namespace

FuzzedService::FuzzedService() = default;

FuzzedService::~FuzzedService() {
  while (!parked.empty()) {
    CompleteOldest();
  }
  for (const int endings : endings_) {
    EXPECT_EQ(endings, 1);
  }
  EXPECT_TRUE(Questions::stream_map_.empty());
  // An ended stream leaves keys that it shared in the registry: free them.
  for (const auto& [key, streams] : Events::stream_map_) {
    delete key;
  }
  Events::stream_map_.clear();
}

void FuzzedService::Park(google::protobuf::RpcController* controller,
                         const lab::Text* request,
                         lab::Text* response,
                         google::protobuf::Closure* done) {
  LabService::Park(controller, request, response, done);
  controller->NotifyOnCancel(google::protobuf::NewCallback(
      this, &FuzzedService::Unpark, &serving::CallContext::Of(controller)));
}

// The call is cancelled, or over already.
void FuzzedService::Unpark(serving::CallContext* call) {
  const auto found = std::ranges::find(parked, call, &Parked::controller);
  if (found != parked.end()) {
    Complete(found);
  }
}

void FuzzedService::CompleteOldest() {
  Complete(parked.begin());
}

void FuzzedService::Complete(std::vector<Parked>::iterator call) {
  google::protobuf::Closure* done = call->done;
  parked.erase(call);
  done->Run();
}

void FuzzedService::Make(google::protobuf::RpcController*,
                         const lab::Number* request,
                         lab::Text* response,
                         google::protobuf::Closure* done) {
  lab::Text event;
  event.set_text("event");
  response->set_text(std::to_string(
      Events::Publish(torvane::WindowId(request->number()), event)));
  Ask(request->number());
  if (!parked.empty()) {
    CompleteOldest();
  }
  done->Run();
}

void FuzzedService::Ask(int64_t window) {
  lab::Decision question;
  question.mutable_browser_id()->set_value(window);
  question.mutable_question()->set_text("may it?");
  const size_t number = endings_.size();
  endings_.push_back(0);
  const bool asked = Questions::Ask(
      question,
      {.response_callback =
           [this, number, window](lab::Decision& answer) {
             EXPECT_EQ(answer.browser_id().value(), window);
             ++endings_[number];
           },
       .error_callback =
           [this, number](torvane::StreamCallError) { ++endings_[number]; }});
  if (!asked) {
    ++endings_[number];
  }
}

}  // namespace rpc::transport
