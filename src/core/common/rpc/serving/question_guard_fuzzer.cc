// Sends any bytes to streams of questions and of events, as a client may, among
// questions of the host. The stream framework trusts what it is given: it ends
// the process on a message that neither subscribes nor answers. So what stands
// in front of it has to see every message as the stream itself does, and to
// keep books that agree with it.
//
// The input is a list of steps: one byte says what is done, and for a message
// the next one how long it is. Half of the messages begin as a well-formed one
// does.

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <utility>

#include "absl/status/status.h"
#include "core/common/rpc/serving/streams.h"
#include "core/common/rpc/stream/callback_stream.h"
#include "core/common/rpc/stream/event_stream.h"
#include "core/common/rpc/testing/fuzzer.h"
#include "core/common/rpc/testing/manual_sequence.h"
#include "rpc/browser/browser_window.rpc.h"

namespace rpc::serving {
namespace {

constexpr uint64_t kQuestions = 1;
constexpr uint64_t kEvents = 2;
constexpr int64_t kWindow = 1;

class Steps {
 public:
  explicit Steps(std::string_view bytes) : bytes_(bytes) {}

  bool empty() const { return bytes_.empty(); }
  uint8_t Byte() {
    if (bytes_.empty()) {
      return 0;
    }
    const auto byte = static_cast<uint8_t>(bytes_.front());
    bytes_.remove_prefix(1);
    return byte;
  }
  std::string Text() {
    const size_t wanted = Byte();
    const size_t size = std::min(wanted, bytes_.size());
    const std::string text(bytes_.substr(0, size));
    bytes_.remove_prefix(size);
    return text;
  }

 private:
  std::string_view bytes_;
};

class Guarded : public StreamSink {
 public:
  Guarded() {
    methods_.Add(&service_);
    streams_ = std::make_shared<Streams>(*endings_, *this, methods_, limits_,
                                         client_, counters_);
    Open(kQuestions, "OnCloseWindow");
    Open(kEvents, "WhenBrowserWindowClosed");
  }

  ~Guarded() {
    bool ended = false;
    streams_->Close([&ended] { ended = true; });
    endings_->FinishAll();
    EXPECT_TRUE(ended);
    streams_.reset();
    sequence_.Run();
    EXPECT_EQ(settled_, asked_);
    EXPECT_EQ(counters_.streams_now, 0u);
    EXPECT_EQ(counters_.subscriptions_now, 0u);
    EXPECT_FALSE(Ask());
  }

  void Take(Steps& steps) {
    const uint8_t step = steps.Byte() % 8;
    if (step == 4) {
      Ask();
    } else if (step == 6) {
      Publish();
    } else if (step == 7) {
      sequence_.Run();
    } else {
      Say(step, steps);
    }
  }

  // The books of the guard and what a client is told agree.
  void Check() {
    EXPECT_LE(counters_.subscriptions_now, limits_.max_subscriptions);
    EXPECT_EQ(counters_.streams_now, 2 - over_.size());
    EXPECT_LE(settled_, asked_);
    ConnectionReport report;
    streams_->Report(report);
    // A question whose stream waits for its end is not open any more.
    if (over_.empty()) {
      EXPECT_EQ(report.questions, asked_ - settled_);
    }
  }

 private:
  // Whatever the client says is read in this order.
  void Say(uint8_t step, Steps& steps) {
    const bool is_begun = step == 2 || step == 3;
    const bool is_event = step == 1 || step == 3;
    const int64_t call_id = is_event ? 0 : steps.Byte();
    std::string payload;
    if (is_begun) {
      payload = is_event ? Listening(steps) : Begun(steps);
    }
    payload += steps.Text();
    if (step == 5) {
      Error(call_id, payload);
    } else {
      Data(is_event ? kEvents : kQuestions, call_id, payload);
    }
  }

  void Open(uint64_t id, const std::string& method) {
    const auto* descriptor =
        BrowserWindowRpc::descriptor()->FindMethodByName(method);
    ASSERT_TRUE(
        streams_->OnClientOpen(id, static_cast<uint64_t>(descriptor->index()))
            .ok());
  }

  void Data(uint64_t id, int64_t call_id, const std::string& payload) {
    transport::StreamMessage message;
    message.set_call_id(call_id);
    message.set_payload(payload);
    streams_->OnClientData(id, &message);
  }

  void Error(int64_t call_id, const std::string& payload) {
    transport::StreamMessage message;
    message.set_call_id(call_id);
    message.set_payload(payload);
    streams_->OnClientError(kQuestions, &message);
  }

  static std::string Begun(Steps& steps) {
    CloseWindow message;
    message.mutable_browser_id()->set_value(kWindow);
    switch (steps.Byte() % 4) {
      case 0:
        message.set_subscribe(true);
        break;
      case 1:
        message.set_subscribe(false);
        break;
      case 2:
        message.mutable_response()->set_allowed(true);
        break;
      case 3:
        message.mutable_question();
        break;
    }
    return message.SerializeAsString();
  }

  static std::string Listening(Steps& steps) {
    EventSubscription message;
    (steps.Byte() % 2 == 0 ? message.mutable_subscribe_to()
                           : message.mutable_unsubscribe_from())
        ->set_value(kWindow);
    return message.SerializeAsString();
  }

  bool Ask() {
    CloseWindow question;
    question.mutable_browser_id()->set_value(kWindow);
    question.mutable_question();
    const auto settle = [this, settled = std::make_shared<bool>(false)] {
      EXPECT_FALSE(std::exchange(*settled, true)) << "settled twice";
      ++settled_;
    };
    ++asked_;
    const bool asked = torvane::CallbackStream<CloseWindow>::Ask(
        question,
        {.response_callback = [settle](CloseWindow&) { settle(); },
         .error_callback = [settle](torvane::StreamCallError) { settle(); }});
    asked_ -= asked ? 0 : 1;
    return asked;
  }

  void Publish() {
    BrowserWindowClosed event;
    event.mutable_browser_id()->set_value(kWindow);
    torvane::EventStream<BrowserWindowClosed>::Publish(event.browser_id(),
                                                       event);
  }

  // StreamSink:
  absl::Status SendMessage(OutgoingStream& stream,
                           const transport::StreamMessage&) override {
    EXPECT_FALSE(over_.contains(stream.id)) << "a message behind the end";
    return absl::OkStatus();
  }
  void SendEnd(uint64_t id, const absl::Status& status) override {
    EXPECT_TRUE(over_.insert(id).second) << "ended twice";
    EXPECT_TRUE(absl::IsInvalidArgument(status) ||
                absl::IsResourceExhausted(status))
        << status;
  }

  loop::ManualSequence sequence_;
  std::shared_ptr<EndingQueue> endings_ =
      std::make_shared<EndingQueue>(sequence_, std::chrono::milliseconds(0));
  Counters counters_;
  const Limits limits_ = {.max_subscriptions = 4};
  BrowserWindowRpc service_;
  ServedMethods methods_;
  ClientRecord client_{{4711, 1000}, counters_};
  std::shared_ptr<Streams> streams_;
  // Streams that the client was told to be over.
  std::set<uint64_t> over_;
  size_t asked_ = 0;
  size_t settled_ = 0;
};

}  // namespace
}  // namespace rpc::serving

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  rpc::serving::Steps steps(
      std::string_view(reinterpret_cast<const char*>(data), size));
  rpc::serving::Guarded guarded;
  while (!steps.empty()) {
    guarded.Take(steps);
    guarded.Check();
  }
  return 0;
}
