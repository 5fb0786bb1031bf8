// The one leak that is there on purpose, and no other: the request of a frame
// on an event stream. Where the leak detector is on, it must pass over exactly
// that one.

#include <gtest/gtest.h>
#include <sanitizer/lsan_interface.h>
#include <unistd.h>

#include <memory>

#include "core/common/rpc/stream/event_stream.h"
#include "core/common/rpc/testing/fake_endpoint.h"
#include "core/common/rpc/testing/window_id.h"
#include "rpc/browser/browser_window.rpc.h"

namespace torvane {
namespace {

using Stream = EventStream<rpc::BrowserWindowClosed>;

std::unique_ptr<Stream> Open(torvane::Service& service) {
  return std::make_unique<Stream>(
      &service, rpc::BrowserWindowRpc::descriptor()->method(37), MakeChannel());
}

void Deliver(Stream& stream, const rpc::EventSubscription& subscription) {
  rpc::transport::StreamMessage frame;
  subscription.SerializeToString(frame.mutable_payload());
  stream.OnNext(&frame);
}

TEST(LeakTest, RequestsOfFramesAreNotReported) {
  rpc::BrowserWindowRpc service;
  const auto stream = Open(service);
  rpc::EventSubscription subscription;
  subscription.mutable_subscribe_to()->set_value(7);
  Deliver(*stream, subscription);
  subscription.mutable_unsubscribe_from()->set_value(7);
  Deliver(*stream, subscription);
  Deliver(*stream, subscription);
  stream->OnCompleted();
  EXPECT_EQ(__lsan_do_recoverable_leak_check(), 0);
}

// Forgets the key that a subscription has copied.
void LeakAKey(torvane::Service& service) {
  const auto stream = Open(service);
  stream->Subscribe(WindowId(7));
  Stream::stream_map_.clear();
}

TEST(LeakTest, ALostKeyIsReported) {
  rpc::BrowserWindowRpc service;
  EXPECT_EXIT(
      {
        LeakAKey(service);
        _exit(__lsan_do_recoverable_leak_check() ? 3 : 0);
      },
      testing::ExitedWithCode(3), "BrowserId");
}

}  // namespace
}  // namespace torvane
