#include "core/common/rpc/transport/fuzzing/client_conversation.h"

#include <gtest/gtest.h>

#include <chrono>
#include <utility>

#include "core/common/rpc/testing/window_id.h"

namespace rpc::transport {
namespace {

using lab::Lab_Stub;
using torvane::WindowId;

// How often Make() is called: each time the server publishes and asks.
constexpr size_t kMakes = 4;

// A timeout longer than any conversation.
constexpr std::chrono::hours kLong{1};

const google::protobuf::MethodDescriptor* Method(const char* name) {
  return lab::Lab::descriptor()->FindMethodByName(name);
}

}  // namespace

ClientConversation::ClientConversation(Client& client, const Topics& topics)
    : client_(client), topics_(topics) {
  if (topics_.events) {
    BeginEvents();
  }
  if (topics_.questions) {
    BeginQuestions();
  }
  if (topics_.calls) {
    BeginCalls();
  }
  CallMake();
}

ClientConversation::~ClientConversation() {
  for (const TextCall& call : calls_) {
    EXPECT_EQ(call.done.runs(), 1);
  }
  for (const TextCall& make : makes_) {
    EXPECT_EQ(make.done.runs(), 1);
  }
  EXPECT_EQ(open_streams_, 0);
}

void ClientConversation::BeginCalls() {
  CallText(client_, &Lab_Stub::Echo, "now").IgnoreError();
  Call(&Lab_Stub::Echo);
  Call(&Lab_Stub::Fail);
  Call(&Lab_Stub::Forget);
  Call(&Lab_Stub::Park);
  calls_.emplace_back();
  parked_ = &calls_.back();
  parked_->controller.set_timeout(kLong);
  parked_->Start(client_, &Lab_Stub::Park, "long");
}

void ClientConversation::Call(TextCall::Method method) {
  calls_.emplace_back();
  calls_.back().Start(client_, method, "text");
}

void ClientConversation::BeginEvents() {
  ++open_streams_;
  subscriber_.emplace(
      client_, Method("Watch"), [this](const lab::Text&) { OnEvent(); },
      [this](const absl::Status&) { --open_streams_; });
  subscriber_->Subscribe(WindowId(1));
  subscriber_->Subscribe(WindowId(2));
}

// A call in flight is given up when an event comes.
void ClientConversation::OnEvent() {
  if (parked_ != nullptr) {
    parked_->controller.StartCancel();
  }
}

void ClientConversation::BeginQuestions() {
  ++open_streams_;
  answerer_.emplace(
      client_, Method("Decide"),
      [this](const lab::Decision&, const Answerer::Reply& reply) {
        OnQuestion(reply);
      },
      [this](const absl::Status&) { --open_streams_; });
  answerer_->Subscribe(WindowId(1));
}

// Cycle of four: answer, decline, keep, keep; with every second one that is
// kept, answer the one that has been kept for longest.
void ClientConversation::OnQuestion(const Answerer::Reply& reply) {
  lab::Decision answer;
  answer.mutable_response()->set_text("yes");
  switch (++questions_ % 4) {
    case 1:
      return reply.Answer(answer).IgnoreError();
    case 2:
      return reply.Decline();
    case 3:
      return kept_.push_back(reply);
    default:
      kept_.push_back(reply);
      kept_.front().Answer(answer).IgnoreError();
      kept_.pop_front();
  }
}

void ClientConversation::CallMake() {
  makes_.emplace_back([this] { OnMade(); });
  lab::Number window;
  window.set_number(1);
  TextCall& make = makes_.back();
  Lab_Stub(&client_).Make(&make.controller, &window, &make.response,
                          &make.done);
}

void ClientConversation::OnMade() {
  if (makes_.size() < kMakes && makes_.back().controller.status().ok()) {
    return CallMake();
  }
  if (std::exchange(ended_, true)) {
    return;
  }
  if (subscriber_) {
    subscriber_->Unsubscribe(WindowId(1));
    subscriber_->End();
  }
  if (answerer_) {
    answerer_->Unsubscribe(WindowId(1));
    answerer_->End();
  }
}

}  // namespace rpc::transport
