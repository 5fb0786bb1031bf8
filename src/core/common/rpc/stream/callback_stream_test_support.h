// What the tests of callback streams share.

#ifndef CORE_COMMON_RPC_STREAM_CALLBACK_STREAM_TEST_SUPPORT_H_
#define CORE_COMMON_RPC_STREAM_CALLBACK_STREAM_TEST_SUPPORT_H_

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "core/common/rpc/stream/callback_stream.h"
#include "core/common/rpc/testing/fake_endpoint.h"
#include "core/common/rpc/testing/window_id.h"
#include "rpc/browser/browser_window.rpc.h"

namespace torvane {

// Reads the table of pending calls, and has calls get ids that the test
// chooses.
struct CallbackStreamTestPeer {
  template <typename T>
  static auto& PendingCalls(CallbackStream<T>& stream) {
    return stream.pending_calls_;
  }

  template <typename T>
  static void Add(CallbackStream<T>& stream,
                  const BrowserId& window,
                  int64_t call_id,
                  typename CallbackStream<T>::StreamCall call) {
    auto& table = stream.pending_calls_;
    auto entry = table.find(&window);
    if (entry == table.end())
      entry = table.try_emplace(new BrowserId(window)).first;
    entry->second.emplace(call_id, std::move(call));
  }

  // The next question of the stream gets this id.
  template <typename T>
  static void SetNextCallId(CallbackStream<T>& stream, int64_t call_id) {
    stream.next_call_id_ = call_id;
  }
};

class CallbackStreamTest : public testing::Test {
 protected:
  using Stream = CallbackStream<rpc::CloseWindow>;
  using Frame = rpc::transport::StreamMessage;

  // Builds the descriptor now: it is built on first use, which would disturb
  // tests that count allocations.
  CallbackStreamTest() { EXPECT_NE(BrowserId::descriptor(), nullptr); }

  ~CallbackStreamTest() override {
    for (const auto& [key, stream] : Stream::stream_map_)
      delete key;
    Stream::stream_map_.clear();
  }

  // Frees the keys of pending calls, which the stream's destructor does not:
  // for tests that destroy a stream without completing it.
  struct Discard {
    void operator()(Stream* stream) const {
      auto& pending_calls = CallbackStreamTestPeer::PendingCalls(*stream);
      for (const auto& [key, calls] : pending_calls)
        delete key;
      pending_calls.clear();
      delete stream;
    }
  };

  std::unique_ptr<Stream, Discard> Open(
      std::shared_ptr<FakeClient> client = std::make_shared<FakeClient>()) {
    return std::unique_ptr<Stream, Discard>(
        new Stream(&service_, rpc::BrowserWindowRpc::descriptor()->method(40),
                   MakeChannel(std::move(client))));
  }

  static Frame FrameOf(const rpc::CloseWindow& message, int64_t call_id = 0) {
    Frame frame;
    message.SerializeToString(frame.mutable_payload());
    frame.set_call_id(call_id);
    return frame;
  }

  static void Subscription(Stream& stream, int64_t window, bool subscribe) {
    rpc::CloseWindow message;
    *message.mutable_browser_id() = WindowId(window);
    message.set_subscribe(subscribe);
    Frame frame = FrameOf(message);
    stream.OnNext(&frame);
  }

  static rpc::CloseWindow AnswerAbout(int64_t window) {
    rpc::CloseWindow message;
    *message.mutable_browser_id() = WindowId(window);
    message.mutable_response();
    return message;
  }

  static void Answer(Stream& stream, int64_t window, int64_t call_id) {
    Frame frame = FrameOf(AnswerAbout(window), call_id);
    stream.OnNext(&frame);
  }

  static void Fail(Stream& stream, int64_t window, int64_t call_id) {
    rpc::CloseWindow message;
    *message.mutable_browser_id() = WindowId(window);
    Frame frame = FrameOf(message, call_id);
    stream.OnError(&frame);
  }

  // The stream that answers for a window, null where none does.
  static Stream* StreamOf(int64_t window) {
    const BrowserId key = WindowId(window);
    const auto entry = Stream::stream_map_.find(&key);
    return entry == Stream::stream_map_.end() ? nullptr : entry->second;
  }

  static size_t Bindings() { return Stream::stream_map_.size(); }

  static size_t PendingWindows(Stream& stream) {
    return CallbackStreamTestPeer::PendingCalls(stream).size();
  }

  static size_t PendingCalls(Stream& stream, int64_t window) {
    const BrowserId key = WindowId(window);
    auto& table = CallbackStreamTestPeer::PendingCalls(stream);
    const auto entry = table.find(&key);
    return entry == table.end() ? 0 : entry->second.size();
  }

  // A call that writes its end into `endings_`: "7 answered", "7 error 1".
  Stream::StreamCall Recorded(const std::string& name) {
    return {
        .response_callback =
            [this, name](rpc::CloseWindow&) {
              endings_.push_back(name + " answered");
            },
        .error_callback =
            [this, name](StreamCallError error) {
              endings_.push_back(name + " error " +
                                 std::to_string(static_cast<int32_t>(error)));
            }};
  }

  // Makes a call pending under an id of the test's choice, which names it.
  void Pend(Stream& stream, int64_t window, int64_t call_id) {
    CallbackStreamTestPeer::Add(stream, WindowId(window), call_id,
                                Recorded(std::to_string(call_id)));
  }

  rpc::BrowserWindowRpc service_;
  std::vector<std::string> endings_;
};

}  // namespace torvane

#endif  // CORE_COMMON_RPC_STREAM_CALLBACK_STREAM_TEST_SUPPORT_H_
