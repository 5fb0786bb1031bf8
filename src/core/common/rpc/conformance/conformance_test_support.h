// What tests of several transports start from: a host, a client, and what the
// two say to each other.

#ifndef CORE_COMMON_RPC_CONFORMANCE_CONFORMANCE_TEST_SUPPORT_H_
#define CORE_COMMON_RPC_CONFORMANCE_CONFORMANCE_TEST_SUPPORT_H_

#include <google/protobuf/wrappers.pb.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "core/common/rpc/conformance/transport_under_test.h"
#include "core/common/rpc/testing/window_id.h"
#include "rpc/browser/browser_window.rpc.h"
#include "rpc/event_subscription.pb.h"

namespace rpc::conformance {

inline constexpr int kHide = 2;
inline constexpr int kClose = 15;
inline constexpr int kSetTitle = 21;
inline constexpr int kGetTitle = 22;
inline constexpr int kWhenClosed = 37;
inline constexpr int kOnCloseWindow = 40;

inline transport::StreamMessage StreamMessageOf(
    const google::protobuf::Message& payload,
    int64_t call_id = 0) {
  transport::StreamMessage message;
  payload.SerializeToString(message.mutable_payload());
  message.set_call_id(call_id);
  return message;
}

// For streams of kWhenClosed.
inline transport::StreamMessage SubscribeToEvents(int64_t window) {
  EventSubscription subscription;
  *subscription.mutable_subscribe_to() = torvane::WindowId(window);
  return StreamMessageOf(subscription);
}

// For streams of kOnCloseWindow.
inline transport::StreamMessage SubscribeToQuestions(int64_t window,
                                                     bool subscribe = true) {
  CloseWindow subscription;
  *subscription.mutable_browser_id() = torvane::WindowId(window);
  subscription.set_subscribe(subscribe);
  return StreamMessageOf(subscription);
}

// What the messages that have come on a stream are about.
template <typename T>
std::vector<int64_t> WindowsOf(const LinkStream& stream) {
  std::vector<int64_t> windows;
  for (const transport::StreamMessage& message : stream.received) {
    T payload;
    EXPECT_TRUE(payload.ParseFromString(message.payload()));
    windows.push_back(payload.browser_id().value());
  }
  return windows;
}

// The name of the tests over a transport.
inline void PrintTo(const TransportUnderTest& transport, std::ostream* out) {
  *out << transport.name;
}

class Conformance : public testing::TestWithParam<TransportUnderTest> {
 protected:
  void Await(const LinkCall& call) {
    EXPECT_TRUE(host_->loop().RunUntil([&] { return call.over; }));
  }
  void Await(const LinkStream& stream, size_t messages) {
    EXPECT_TRUE(host_->loop().RunUntil(
        [&] { return stream.received.size() >= messages; }));
  }
  void AwaitEnd(const LinkStream& stream) {
    EXPECT_TRUE(host_->loop().RunUntil([&] { return stream.over; }));
  }

  LinkCall& SetTitle(int64_t window, const std::string& title) {
    WindowTitle request;
    *request.mutable_browser_id() = torvane::WindowId(window);
    request.set_title(title);
    return link_->Call(kSetTitle, request);
  }

  std::string Title(int64_t window) { return Title(*link_, window); }

  // Has the service publish that a window has closed.
  void Publish(int64_t window) {
    LinkCall& call = link_->Call(kHide, torvane::WindowId(window));
    Await(call);
    EXPECT_EQ(call.failure, "");
  }

  // Returns once everything that was sent on the link before has been handled.
  void AwaitAllHandled() { AwaitAllHandled(*link_); }
  void AwaitAllHandled(Link& link) { Title(link, 1); }

  const std::unique_ptr<Host> host_ = GetParam().make_host();
  const std::unique_ptr<Link> link_ = host_->Connect();

 private:
  std::string Title(Link& link, int64_t window) {
    LinkCall& call = link.Call(kGetTitle, torvane::WindowId(window));
    Await(call);
    EXPECT_EQ(call.failure, "");
    return static_cast<google::protobuf::StringValue&>(*call.response).value();
  }
};

}  // namespace rpc::conformance

#endif  // CORE_COMMON_RPC_CONFORMANCE_CONFORMANCE_TEST_SUPPORT_H_
