// A client without a transport, and a service whose streams write down what a
// server does to them.

#ifndef CORE_COMMON_RPC_SERVING_STREAMS_TEST_SUPPORT_H_
#define CORE_COMMON_RPC_SERVING_STREAMS_TEST_SUPPORT_H_

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "absl/strings/str_cat.h"
#include "core/common/rpc/serving/streams.h"
#include "core/common/rpc/testing/manual_sequence.h"
#include "rpc/browser/browser_window.rpc.h"

namespace rpc::serving {

// What happened, in its order.
using Events = std::vector<std::string>;

// A stream that writes down what happens to it and does what the test says.
class ProbeStream final : public torvane::AbstractStream {
 public:
  ProbeStream(torvane::StreamChannel channel, std::string name, Events& events)
      : AbstractStream(std::move(channel)),
        name_(std::move(name)),
        events_(events) {}
  ~ProbeStream() override {
    EXPECT_EQ(calls_, 0) << name_ << " is destroyed within one of its calls";
    events_.push_back(name_ + " destroyed");
  }

  void OnNext(transport::StreamMessage*) override { Note("next"); }
  void OnError(transport::StreamMessage*) override { Note("error"); }
  void OnCompleted() override {
    Note("completed");
    if (completes) {
      Complete();
    }
  }

  bool Say(int64_t call_id = 0, const std::string& payload = "") {
    transport::StreamMessage message;
    message.set_payload(payload);
    message.set_call_id(call_id);
    return Send(message);
  }
  void Finish() { Complete(); }

  // Done within the next of the stream's calls.
  std::function<void()> meanwhile = [] {};
  // Whether OnCompleted does what it should.
  bool completes = true;

 private:
  void Note(const std::string& what) {
    events_.push_back(absl::StrCat(name_, " ", what));
    ++calls_;
    std::exchange(meanwhile, [] {})();
    --calls_;
  }

  const std::string name_;
  Events& events_;
  int calls_ = 0;
};

// Opens probes: the first is "a", and so on.
class ProbeService final : public BrowserWindowRpc {
 public:
  explicit ProbeService(Events& events) : events_(events) {}

  std::unique_ptr<torvane::AbstractStream> OpenStream(
      const google::protobuf::MethodDescriptor*,
      torvane::StreamChannel channel) override {
    auto stream = std::make_unique<ProbeStream>(
        std::move(channel),
        std::string(1, static_cast<char>('a' + streams.size())), events_);
    streams.push_back(stream.get());
    std::exchange(on_open, [](ProbeStream&) {})(*stream);
    return stream;
  }

  std::vector<ProbeStream*> streams;
  // Done when the next stream is opened.
  std::function<void(ProbeStream&)> on_open = [](ProbeStream&) {};

 private:
  Events& events_;
};

// A client without a transport: writes down what it would be sent, among what
// happens to its streams.
class StreamsTest : public ::testing::Test, public StreamSink {
 protected:
  StreamsTest() {
    methods_.Add(&service_);
    Serve({});
  }
  ~StreamsTest() override {
    if (streams_) {
      CloseAndForget();
    }
    sequence_.Run();
    EXPECT_EQ(counters_.streams_now, 0u);
    EXPECT_EQ(counters_.subscriptions_now, 0u);
  }

  // Begins anew, with other limits.
  void Serve(const Limits& limits) {
    limits_ = limits;
    streams_ = std::make_shared<Streams>(*endings_, *this, methods_, limits_,
                                         client_, counters_);
  }
  absl::Status TryOpen(uint64_t id, const std::string& method) {
    const auto* descriptor =
        BrowserWindowRpc::descriptor()->FindMethodByName(method);
    return streams_->OnClientOpen(id,
                                  static_cast<uint32_t>(descriptor->index()));
  }
  // The probe of a stream that is open now.
  ProbeStream& OpenEvents(uint64_t id) {
    EXPECT_TRUE(TryOpen(id, "WhenBrowserWindowClosed").ok());
    return *service_.streams.back();
  }
  ProbeStream& OpenQuestions(uint64_t id) {
    EXPECT_TRUE(TryOpen(id, "OnCloseWindow").ok());
    return *service_.streams.back();
  }
  // The client leaves. Its streams have to end yet.
  void Leave() {
    streams_->Close([this] { events_.emplace_back("all ended"); });
  }
  void CloseAndForget() {
    Leave();
    endings_->FinishAll();
    streams_.reset();
  }

  // What the client sends.
  void Data(uint64_t id, const std::string& payload = "", int64_t call_id = 0) {
    transport::StreamMessage message;
    message.set_payload(payload);
    message.set_call_id(call_id);
    streams_->OnClientData(id, &message);
  }
  void Error(uint64_t id,
             const std::string& payload = "",
             int64_t call_id = 0) {
    transport::StreamMessage message;
    message.set_payload(payload);
    message.set_call_id(call_id);
    streams_->OnClientError(id, &message);
  }
  void Listen(uint64_t id, int64_t window, bool listen = true) {
    EventSubscription subscription;
    (listen ? subscription.mutable_subscribe_to()
            : subscription.mutable_unsubscribe_from())
        ->set_value(window);
    Data(id, subscription.SerializeAsString());
  }
  // Subscribes to a window that no stream has subscribed to.
  void ListenMore(uint64_t id) { Listen(id, ++last_window_); }
  void AnswerFor(uint64_t id, int64_t window, bool answer = true) {
    CloseWindow message = About(window);
    message.set_subscribe(answer);
    Data(id, message.SerializeAsString());
  }
  void Answer(uint64_t id, int64_t window, int64_t call_id) {
    CloseWindow message = About(window);
    message.mutable_response();
    Data(id, message.SerializeAsString(), call_id);
  }

  // What the server's streams send.
  static CloseWindow About(int64_t window) {
    CloseWindow message;
    message.mutable_browser_id()->set_value(window);
    return message;
  }
  static bool Ask(ProbeStream& stream, int64_t window, int64_t call_id) {
    CloseWindow question = About(window);
    question.mutable_question();
    return stream.Say(call_id, question.SerializeAsString());
  }

  Events TakeEvents() { return std::exchange(events_, {}); }
  ConnectionReport Report() const {
    ConnectionReport report;
    streams_->Report(report);
    return report;
  }

  loop::ManualSequence sequence_;
  // The clock stands still, so that each turn does a single thing.
  std::shared_ptr<EndingQueue> endings_ =
      std::make_shared<EndingQueue>(sequence_, std::chrono::milliseconds(0));
  Counters counters_;
  Limits limits_;
  Events events_;
  ProbeService service_{events_};
  ServedMethods methods_;
  ClientRecord client_{{4711, 1000}, counters_};
  std::shared_ptr<Streams> streams_;
  int64_t last_window_ = 1'000;

  // What the sink answers to a message.
  absl::Status sent_;
  // The stream of the last message, as the sink knows it.
  OutgoingStream* outgoing_ = nullptr;

 private:
  absl::Status SendMessage(OutgoingStream& stream,
                           const transport::StreamMessage& message) override {
    outgoing_ = &stream;
    events_.push_back(
        absl::StrCat("message ", stream.id, " call ", message.call_id()));
    return sent_;
  }
  void SendEnd(uint64_t stream_id, const absl::Status& status) override {
    events_.push_back(absl::StrCat("end ", stream_id, " ", status.ToString()));
  }
};

}  // namespace rpc::serving

#endif  // CORE_COMMON_RPC_SERVING_STREAMS_TEST_SUPPORT_H_
