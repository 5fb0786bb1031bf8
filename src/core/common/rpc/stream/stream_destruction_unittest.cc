// In which order a stream lets go of its service, its method and its channel.
//
// Compiled against a checked pointer that writes its end down, in place of the
// base library's.

#include <gmock/gmock.h>
#include <google/protobuf/descriptor.h>
#include <gtest/gtest.h>

#include <memory>
#include <set>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

// Before the streams' headers, which include the real one under this guard.
#define BASE_MEMORY_RAW_PTR_H_

namespace {
std::vector<std::string> events;
// What checked pointers that are alive point to.
std::multiset<const void*> referenced;
}  // namespace

namespace torvane {
class Service;
}

template <typename T>
class raw_ptr {
 public:
  raw_ptr(T* target) : target_(target) { referenced.insert(target); }
  ~raw_ptr() {
    referenced.erase(referenced.find(target_));
    events.push_back(std::is_same_v<T, torvane::Service> ? "service"
                                                         : "method");
  }
  operator T*() const { return target_; }
  T* operator->() const { return target_; }

 private:
  T* target_;
};

#include "core/common/rpc/stream/callback_stream.h"
#include "core/common/rpc/stream/event_stream.h"
#include "streams_only.pb.h"

namespace torvane {

struct CallbackStreamTestPeer {
  template <typename T>
  static auto& PendingCalls(CallbackStream<T>& stream) {
    return stream.pending_calls_;
  }
};

namespace {

using testing::ElementsAre;

class Endpoint : public StreamChannel::Endpoint {
 public:
  ~Endpoint() override { events.push_back("channel"); }
  bool Send(const rpc::transport::StreamMessage&) override { return true; }
  void Complete() override {}
};

StreamChannel Channel() {
  return StreamChannel(std::make_unique<Endpoint>());
}

TEST(StreamDestruction, AnEventStreamReleasesMethodThenServiceThenChannel) {
  events.clear();
  { const EventStream<streams::Happened> stream(nullptr, nullptr, Channel()); }
  EXPECT_THAT(events, ElementsAre("method", "service", "channel"));
}

TEST(StreamDestruction,
     ACallbackStreamDiscardsItsCallsBeforeItReleasesAnything) {
  const BrowserId key;
  std::shared_ptr<void> farewell(nullptr,
                                 [](void*) { events.push_back("calls"); });
  {
    CallbackStream<streams::MayI> stream(nullptr, nullptr, Channel());
    CallbackStreamTestPeer::PendingCalls(stream)[&key].emplace(
        1,
        CallbackStream<streams::MayI>::StreamCall{
            .response_callback = [f = std::move(farewell)](streams::MayI&) {},
            .error_callback = [](StreamCallError) {}});
    events.clear();
  }
  EXPECT_THAT(events, ElementsAre("calls", "method", "service", "channel"));
}

// Destroying a service under an open stream breaks the contract. The stream's
// reference is what lets the base library notice.
TEST(StreamDestruction, AServiceIsReferencedForAsLongAsAStreamIsOpen) {
  const auto service = std::make_unique<char>();
  auto* const address = reinterpret_cast<Service*>(service.get());
  {
    const EventStream<streams::Happened> events_of(address, nullptr, Channel());
    const CallbackStream<streams::MayI> answers_of(address, nullptr, Channel());
    EXPECT_EQ(referenced.count(address), 2u);
  }
  EXPECT_EQ(referenced.count(address), 0u);
}

}  // namespace
}  // namespace torvane
