// One subscriber of a thousand has stopped reading: the host pays no more for
// it than the outbox bound, the others get every event, and it is closed
// without a goodbye, since its socket is full.
//
// The host is a process of its own, so that what it allocates can be told from
// what its clients do. A thousand events to a thousand subscribers make a
// million deliveries; UNREAD_SUBSCRIBER_EVENTS asks for another number of
// events.

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "core/common/rpc/stream/event_stream.h"
#include "core/common/rpc/testing/allocation_counter.h"
#include "core/common/rpc/testing/host_process.h"
#include "core/common/rpc/testing/private_folder.h"
#include "core/common/rpc/transport/event_subscriber.h"
#include "core/common/rpc/transport/testing/lab.h"

namespace rpc::transport {
namespace {

using lab::Lab_Stub;

constexpr size_t kSubscribers = 1'000;
// That the reading subscribers share. The unread one has its own.
constexpr size_t kConnections = 10;
constexpr size_t kOutboxBytes = 512 << 10;
constexpr size_t kEventBytes = 1'000;

// Events between two looks at the host. Few enough for the connections that are
// read to stay within their bounds.
constexpr int64_t kEventsPerRound = 10;

// What a growing outbox may take in addition: the chunk that it is filling, and
// what an allocator keeps for itself.
constexpr size_t kSlackBytes = 128 << 10;

int64_t EventCount() {
  const char* const count = std::getenv("UNREAD_SUBSCRIBER_EVENTS");
  return count != nullptr ? std::atoll(count) : 1'000;
}

// An event begins with its number, padded to a fixed length.
std::string EventText(int64_t number) {
  std::string text = std::to_string(number);
  text.resize(kEventBytes, ' ');
  return text;
}

// What runs in the host's process.
class HostService final : public lab::LabRpc {
 public:
  // Publishes so many events.
  void Make(google::protobuf::RpcController*,
            const lab::Number* request,
            lab::Text*,
            google::protobuf::Closure* done) override {
    for (int64_t i = 0; i < request->number(); ++i) {
      lab::Text event;
      event.set_text(EventText(published_++));
      torvane::EventStream<lab::Text>::Publish(BrowserId(), event);
    }
    done->Run();
  }

  // Answers what is asked about the host.
  void Echo(google::protobuf::RpcController*,
            const lab::Text* request,
            lab::Text* response,
            google::protobuf::Closure* done) override {
    const serving::Counters& counters = server->counters();
    if (request->text() == "allocated bytes") {
      response->set_text(
          std::to_string(torvane::CountAllocations().live_bytes));
    } else if (request->text() == "subscriptions") {
      response->set_text(std::to_string(counters.subscriptions_now));
    } else if (request->text() == "outboxes full") {
      response->set_text(std::to_string(counters.limit_hits.max_outbox_bytes));
    }
    done->Run();
  }

  Server* server = nullptr;

 private:
  int64_t published_ = 0;
};

class UnreadSubscriber : public ::testing::Test {
 protected:
  size_t AskHost(const std::string& what) {
    const auto answer = CallText(*control_, &Lab_Stub::Echo, what);
    EXPECT_TRUE(answer.ok()) << answer.status();
    return answer.ok() ? std::stoull(*answer) : 0;
  }
  void Publish(int64_t events) {
    ClientController controller;
    lab::Number request;
    request.set_number(events);
    lab::Text response;
    Lab_Stub(control_.get()).Make(&controller, &request, &response, nullptr);
    EXPECT_TRUE(controller.status().ok()) << controller.status();
    published_ += events;
  }

  loop::ScopedFd Connect() { return Client::OpenSocket(path_).value(); }

  // A client that subscribes and then does not read any more.
  std::unique_ptr<RawPeer> NewUnreadSubscriber() {
    auto peer = std::make_unique<RawPeer>(loop_, Connect());
    peer->SendHello();
    EXPECT_TRUE(peer->Receive());
    StreamOpenFrame open;
    open.set_method_id(peer->IdOf("Watch"));
    peer->Send(Frame::kStreamOpen, open);
    EventSubscription subscription;
    subscription.mutable_subscribe_to();
    StreamDataFrame data;
    data.add_stream_ids(0);
    subscription.SerializeToString(data.mutable_message()->mutable_payload());
    peer->Send(Frame::kStreamData, data);
    return peer;
  }

  // A subscriber that reads, and checks that no event is missing.
  struct Subscriber {
    Subscriber(UnreadSubscriber& test, Client& client)
        : events(client,
                 lab::Lab::descriptor()->FindMethodByName("Watch"),
                 [this, &test](const lab::Text& event) {
                   in_order &= event.text() == test.TextOf(next++);
                   ++test.received_;
                 }) {
      events.Subscribe(BrowserId());
    }

    int64_t next = 0;
    bool in_order = true;
    EventSubscriber<lab::Text> events;
  };
  void AddSubscribers() {
    for (size_t i = 0; i < kConnections; ++i) {
      clients_.push_back(Client::Connect(loop_, path_).value());
    }
    for (size_t i = 1; i < kSubscribers; ++i) {
      subscribers_.push_back(
          std::make_unique<Subscriber>(*this, *clients_[i % kConnections]));
    }
  }

  // Texts of the latest events, made once for all subscribers.
  const std::string& TextOf(int64_t number) {
    std::string& text = texts_[static_cast<size_t>(number % kEventsPerRound)];
    if (std::atoll(text.c_str()) != number || text.empty()) {
      text = EventText(number);
    }
    return text;
  }

  // Waits until all who read have received all events.
  void AwaitEvents() {
    ASSERT_TRUE(loop_.RunUntil([this] {
      return received_ >=
             published_ * static_cast<int64_t>(subscribers_.size());
    }));
  }

  loop::Loop loop_;
  int64_t published_ = 0;
  int64_t received_ = 0;
  std::vector<std::unique_ptr<Client>> clients_;
  std::vector<std::unique_ptr<Subscriber>> subscribers_;

 private:
  void Serve(const std::function<void()>& ready) const {
    loop::Loop loop;
    HostService service;
    ServerOptions options;
    options.limits.max_outbox_bytes = kOutboxBytes;
    options.limits.busy_outbox_bytes = kOutboxBytes;
    Server server(loop, options);
    service.server = &server;
    server.AddService(&service);
    if (server.Listen(path_).ok()) {
      ready();
      loop.Run();
    }
  }

  const torvane::PrivateFolder folder_;
  const std::string path_ = folder_.File("socket");
  const torvane::HostProcess host_{[this](const auto& ready) { Serve(ready); }};
  std::array<std::string, kEventsPerRound> texts_;
  const std::unique_ptr<Client> control_ =
      Client::Connect(loop_, path_).value();
};

TEST_F(UnreadSubscriber,
       AnUnreadSubscriberCostsItsBoundAndKeepsNothingFromTheOthers) {
  AddSubscribers();
  const auto unread = NewUnreadSubscriber();
  while (AskHost("subscriptions") < kSubscribers) {
  }
  // Some events first, so that every connection has allocated its buffers.
  Publish(kEventsPerRound);
  AwaitEvents();

  const size_t before = AskHost("allocated bytes");
  size_t most = before;
  const int64_t events = EventCount();
  while (published_ < events) {
    Publish(kEventsPerRound);
    AwaitEvents();
    most = std::max(most, AskHost("allocated bytes"));
  }
  EXPECT_EQ(AskHost("outboxes full"), 1u);
  EXPECT_LE(most - before, kOutboxBytes + kSlackBytes);
  // Nearly all of it was used, and all of it is given back.
  EXPECT_GE(most - before, kOutboxBytes - kSlackBytes);
  EXPECT_LE(AskHost("allocated bytes"), before + kSlackBytes);

  for (const auto& subscriber : subscribers_) {
    EXPECT_EQ(subscriber->next, published_);
    EXPECT_TRUE(subscriber->in_order);
  }
  // Its socket is full, so that it is closed without a goodbye.
  EXPECT_EQ(unread->AwaitGoodbye(), absl::OkStatus());
}

}  // namespace
}  // namespace rpc::transport
