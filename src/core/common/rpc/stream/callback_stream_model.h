// Does operations on callback streams and the same on a simple model, and
// compares the two after each step.

#ifndef CORE_COMMON_RPC_STREAM_CALLBACK_STREAM_MODEL_H_
#define CORE_COMMON_RPC_STREAM_CALLBACK_STREAM_MODEL_H_

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "base/logging.h"
#include "core/common/rpc/stream/callback_stream.h"
#include "core/common/rpc/stream/callback_stream_test_support.h"
#include "core/common/rpc/testing/choice.h"
#include "core/common/rpc/testing/fake_endpoint.h"
#include "rpc/browser/browser_window.rpc.h"

namespace torvane {

class CallbackStreamModel {
 public:
  explicit CallbackStreamModel(Choice choice) : choice_(std::move(choice)) {
    // Each window that changes streams is logged as a warning, and here that
    // happens all the time.
    logging::SetMinLogLevel(logging::LOGGING_ERROR);
    for (Slot& slot : slots_)
      Open(slot);
  }

  ~CallbackStreamModel() {
    for (Slot& slot : slots_)
      slot.stream->OnCompleted();
    EXPECT_TRUE(Stream::stream_map_.empty());
    logging::SetMinLogLevel(logging::LOGGING_INFO);
  }

  void Step() {
    Slot& slot = slots_[choice_(kStreams)];
    const int64_t window = choice_(kWindows);
    switch (choice_(10)) {
      case 0:
        return End(slot);
      case 1:
        return Unsubscribe(slot, window);
      case 2:
      case 3:
        return Subscribe(slot, window);
      case 4:
        return Settle(slot, window, "error 2");
      case 5:
      case 6:
        return Settle(slot, window, "answered");
      default:
        return Ask(window);
    }
  }

  void Check() {
    ASSERT_EQ(endings_, expected_endings_);
    endings_.clear();
    expected_endings_.clear();

    std::map<int64_t, Stream*> bindings;
    for (const auto& [key, stream] : Stream::stream_map_)
      bindings[static_cast<const BrowserId*>(key)->value()] = stream;
    ASSERT_EQ(bindings.size(), Stream::stream_map_.size());
    ASSERT_EQ(bindings, bindings_);

    for (const Slot& slot : slots_)
      ASSERT_EQ(PendingIds(*slot.stream), ExpectedIds(slot));
  }

 private:
  using Stream = CallbackStream<rpc::CloseWindow>;

  static constexpr int kStreams = 4;
  static constexpr int kWindows = 4;

  struct Slot {
    std::unique_ptr<Stream> stream;
    std::shared_ptr<FakeClient> client;
    // Window, call id, name of the question.
    std::map<int64_t, std::map<int64_t, std::string>> pending;
  };

  using PendingCallIds = std::map<int64_t, std::set<int64_t>>;

  // The ids of the calls that are pending, by window.
  static PendingCallIds PendingIds(Stream& stream) {
    PendingCallIds ids;
    for (const auto& [key, calls] :
         CallbackStreamTestPeer::PendingCalls(stream)) {
      std::set<int64_t>& of_window =
          ids[static_cast<const BrowserId*>(key)->value()];
      for (const auto& [id, call] : calls)
        of_window.insert(id);
    }
    return ids;
  }

  static PendingCallIds ExpectedIds(const Slot& slot) {
    PendingCallIds ids;
    for (const auto& [window, calls] : slot.pending) {
      for (const auto& [id, name] : calls)
        ids[window].insert(id);
    }
    return ids;
  }

  void Open(Slot& slot) {
    slot.client = std::make_shared<FakeClient>();
    slot.stream = std::make_unique<Stream>(
        &service_, rpc::BrowserWindowRpc::descriptor()->method(40),
        MakeChannel(slot.client));
  }

  static rpc::transport::StreamMessage Frame(const rpc::CloseWindow& message,
                                             int64_t call_id) {
    rpc::transport::StreamMessage frame;
    message.SerializeToString(frame.mutable_payload());
    frame.set_call_id(call_id);
    return frame;
  }

  static rpc::CloseWindow About(int64_t window) {
    rpc::CloseWindow message;
    message.mutable_browser_id()->set_value(window);
    return message;
  }

  void Subscribe(Slot& slot, int64_t window) {
    rpc::CloseWindow message = About(window);
    message.set_subscribe(true);
    auto frame = Frame(message, 0);
    slot.stream->OnNext(&frame);
    bindings_[window] = slot.stream.get();
  }

  void Unsubscribe(Slot& slot, int64_t window) {
    rpc::CloseWindow message = About(window);
    message.set_subscribe(false);
    auto frame = Frame(message, 0);
    slot.stream->OnNext(&frame);
    bindings_.erase(window);
    ExpectCancellation(slot, window);
  }

  void ExpectCancellation(Slot& slot, int64_t window) {
    const auto calls = slot.pending.find(window);
    if (calls == slot.pending.end())
      return;
    for (const auto& [id, name] : calls->second)
      expected_endings_.push_back(name + " error 1");
    slot.pending.erase(calls);
  }

  void Ask(int64_t window) {
    const std::string name = "question " + std::to_string(++questions_);
    rpc::CloseWindow question = About(window);
    question.mutable_question();
    const bool asked = Stream::Ask(
        question,
        {.response_callback =
             [this, name, window](rpc::CloseWindow& answer) {
               ASSERT_EQ(answer.browser_id().value(), window);
               endings_.push_back(name + " answered");
             },
         .error_callback =
             [this, name](StreamCallError error) {
               endings_.push_back(name + " error " +
                                  std::to_string(static_cast<int32_t>(error)));
             }});
    const auto binding = bindings_.find(window);
    ASSERT_EQ(asked, binding != bindings_.end());
    if (!asked)
      return;
    for (Slot& slot : slots_) {
      if (slot.stream.get() == binding->second)
        slot.pending[window][slot.client->frames.back().call_id()] = name;
    }
  }

  // Sends an answer or an error with a call id that is pending for the window,
  // or for another one, or not at all.
  void Settle(Slot& slot, int64_t window, const std::string& ending) {
    const auto& asked = slot.client->frames;
    const int count = static_cast<int>(asked.size());
    const int64_t call_id = count == 0 || choice_(5) == 0
                                ? choice_(3)
                                : asked[choice_(count)].call_id();
    rpc::CloseWindow message = About(window);
    if (ending == "answered")
      message.mutable_response();
    auto frame = Frame(message, call_id);
    if (ending == "answered")
      slot.stream->OnNext(&frame);
    else
      slot.stream->OnError(&frame);

    const auto calls = slot.pending.find(window);
    if (calls == slot.pending.end() || !calls->second.contains(call_id))
      return;
    expected_endings_.push_back(calls->second[call_id] + " " + ending);
    calls->second.erase(call_id);
    if (calls->second.empty())
      slot.pending.erase(calls);
  }

  // Completes a stream, destroys it and opens another in its place.
  void End(Slot& slot) {
    const auto pending = slot.pending;
    for (const auto& [window, calls] : pending)
      ExpectCancellation(slot, window);
    std::erase_if(bindings_, [&slot](const auto& binding) {
      return binding.second == slot.stream.get();
    });
    slot.stream->OnCompleted();
    ASSERT_EQ(slot.client->completions, 1);
    // The order in which windows are cancelled is that of the table.
    std::sort(endings_.begin(), endings_.end());
    std::sort(expected_endings_.begin(), expected_endings_.end());
    Check();
    slot.stream.reset();
    Open(slot);
  }

  rpc::BrowserWindowRpc service_;
  const Choice choice_;
  Slot slots_[kStreams];
  int questions_ = 0;
  std::map<int64_t, Stream*> bindings_;
  std::vector<std::string> endings_;
  std::vector<std::string> expected_endings_;
};

}  // namespace torvane

#endif  // CORE_COMMON_RPC_STREAM_CALLBACK_STREAM_MODEL_H_
