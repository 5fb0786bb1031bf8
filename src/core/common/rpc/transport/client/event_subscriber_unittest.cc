#include "core/common/rpc/transport/event_subscriber.h"

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "core/common/rpc/stream/event_stream.h"
#include "core/common/rpc/testing/window_id.h"
#include "core/common/rpc/transport/testing/lab.h"

namespace rpc::transport {
namespace {

using torvane::WindowId;

const google::protobuf::MethodDescriptor* Watch() {
  return lab::Lab::descriptor()->FindMethodByName("Watch");
}

size_t Publish(int64_t window, const std::string& text) {
  lab::Text event;
  event.set_text(text);
  return torvane::EventStream<lab::Text>::Publish(WindowId(window), event);
}

// A subscriber that keeps what it gets.
struct Listener {
  explicit Listener(Client& client,
                    const google::protobuf::MethodDescriptor* method = Watch())
      : subscriber(
            std::in_place,
            client,
            method,
            [this](const lab::Text& event) {
              events.push_back(event.text());
              meanwhile();
            },
            [this](const absl::Status& status) { ends.push_back(status); }) {}

  std::function<void()> meanwhile = [] {};
  std::vector<std::string> events;
  std::vector<absl::Status> ends;
  std::optional<EventSubscriber<lab::Text>> subscriber;
};

// Frees what streams that shared a key have left in the registry.
struct RegistryCleaner {
  ~RegistryCleaner() {
    auto& registry = torvane::EventStream<lab::Text>::stream_map_;
    for (const auto& [key, streams] : std::exchange(registry, {})) {
      delete key;
    }
  }
};

class Events : public ::testing::Test {
 protected:
  RegistryCleaner cleaner;
  Lab lab;
  std::unique_ptr<Client> client = lab.NewClient();
};

TEST_F(Events, EventsReachTheSubscribersOfTheirKey) {
  Listener first(*client);
  Listener second(*client);
  first.subscriber->Subscribe(WindowId(1));
  second.subscriber->Subscribe(WindowId(2));
  second.subscriber->Subscribe(WindowId(1));
  lab.RunReady();
  EXPECT_EQ(Publish(1, "a"), 2u);
  EXPECT_EQ(Publish(2, "b"), 1u);
  EXPECT_EQ(Publish(3, "c"), 0u);
  lab.RunReady();
  EXPECT_EQ(first.events, std::vector<std::string>{"a"});
  EXPECT_EQ(second.events, (std::vector<std::string>{"a", "b"}));
}

TEST_F(Events, NoEventsComeAfterUnsubscribing) {
  Listener listener(*client);
  listener.subscriber->Subscribe(WindowId(1));
  listener.subscriber->Subscribe(WindowId(2));
  EXPECT_TRUE(listener.subscriber->Unsubscribe(WindowId(1)));
  lab.RunReady();
  EXPECT_EQ(Publish(1, "a"), 0u);
  EXPECT_EQ(Publish(2, "b"), 1u);
  lab.RunReady();
  EXPECT_EQ(listener.events, std::vector<std::string>{"b"});
}

TEST_F(Events, EventsSentBeforeTheEndArriveBeforeIt) {
  Listener listener(*client);
  listener.subscriber->Subscribe(WindowId(1));
  lab.RunReady();
  Publish(1, "last");
  listener.subscriber->End();
  EXPECT_FALSE(listener.subscriber->Subscribe(WindowId(2)));
  EXPECT_TRUE(listener.ends.empty());
  lab.RunReady();
  EXPECT_EQ(listener.events, std::vector<std::string>{"last"});
  EXPECT_EQ(listener.ends, std::vector<absl::Status>{absl::OkStatus()});
  EXPECT_EQ(Publish(1, "nobody"), 0u);
}

TEST_F(Events, EventsThatWaitWhenTheServerGoesStillArrive) {
  Listener listener(*client);
  listener.subscriber->Subscribe(WindowId(1));
  lab.RunReady();
  EXPECT_EQ(Publish(1, "last"), 1u);
  lab.server.reset();
  lab.RunReady();
  EXPECT_EQ(listener.events, std::vector<std::string>{"last"});
  EXPECT_EQ(listener.ends.size(), 1u);
}

TEST_F(Events, ADestroyedSubscriberLeavesNothingBehind) {
  {
    Listener listener(*client);
    listener.subscriber->Subscribe(WindowId(1));
    lab.RunReady();
    EXPECT_EQ(Publish(1, "unheard"), 1u);
  }
  lab.RunReady();
  EXPECT_EQ(Publish(1, "nobody"), 0u);
  EXPECT_EQ(lab.server->counters().streams_now, 0u);
}

TEST_F(Events, ASubscriberMayBeDestroyedByItsOwnEvent) {
  Listener listener(*client);
  Listener other(*client);
  listener.subscriber->Subscribe(WindowId(1));
  other.subscriber->Subscribe(WindowId(1));
  lab.RunReady();
  listener.meanwhile = [&] { listener.subscriber.reset(); };
  Publish(1, "a");
  lab.RunReady();
  EXPECT_EQ(listener.events.size(), 1u);
  EXPECT_EQ(other.events.size(), 1u);
  EXPECT_TRUE(listener.ends.empty());
}

TEST_F(Events, ASubscriberMayBeDestroyedByTheEventOfAnother) {
  Listener listener(*client);
  Listener other(*client);
  listener.subscriber->Subscribe(WindowId(1));
  other.subscriber->Subscribe(WindowId(1));
  listener.meanwhile = [&] { other.subscriber.reset(); };
  other.meanwhile = [&] { listener.subscriber.reset(); };
  lab.RunReady();
  Publish(1, "a");
  lab.RunReady();
  EXPECT_EQ(listener.events.size() + other.events.size(), 1u);
}

TEST_F(Events, TheClientMayBeDestroyedByAnEvent) {
  Listener listener(*client);
  listener.subscriber->Subscribe(WindowId(1));
  lab.RunReady();
  listener.meanwhile = [&] { client.reset(); };
  Publish(1, "a");
  Publish(1, "b");
  lab.RunReady();
  EXPECT_EQ(listener.events, std::vector<std::string>{"a"});
  EXPECT_EQ(listener.ends, std::vector<absl::Status>{absl::CancelledError(
                               "the client was destroyed")});
}

TEST_F(Events, SubscribersAreToldThatTheServerEnds) {
  Listener listener(*client);
  lab.RunReady();
  lab.server->Stop();
  lab.RunReady();
  EXPECT_EQ(listener.ends, std::vector<absl::Status>{absl::UnavailableError(
                               "the server is stopping")});
  EXPECT_FALSE(listener.subscriber->Subscribe(WindowId(1)));
}

TEST_F(Events, AMethodThatIsNotOfferedEndsTheStreamSoon) {
  Listener listener(*client, lab::Aquarium::descriptor()->method(0));
  EXPECT_TRUE(listener.ends.empty());
  lab.RunReady();
  EXPECT_EQ(listener.ends,
            std::vector<absl::Status>{absl::UnimplementedError(
                "the server has no service lab.Aquarium and so no method "
                "lab.Aquarium.Watch")});
}

TEST_F(Events, OnALostClientTheStreamEndsSoon) {
  lab.server->Stop();
  lab.RunReady();
  Listener listener(*client);
  EXPECT_FALSE(listener.subscriber->Subscribe(WindowId(1)));
  lab.RunReady();
  EXPECT_EQ(listener.ends, std::vector<absl::Status>{absl::UnavailableError(
                               "the server is stopping")});
}

TEST_F(Events, EventsThatDoNotParseArePassedOver) {
  RawServer server(lab.loop);
  Listener listener(*server.client);
  for (const std::string payload : {"\xff\xff", "\x0a\x01x"}) {
    StreamDataFrame data;
    data.add_stream_ids(1);
    data.mutable_message()->set_payload(payload);
    server.peer.Send(Frame::kStreamData, data);
  }
  lab.RunReady();
  EXPECT_EQ(listener.events, std::vector<std::string>{"x"});
}

}  // namespace
}  // namespace rpc::transport
