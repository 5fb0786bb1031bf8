// A host without a socket and without a screen, and clients with the other end
// of its streams, all in the test's process.

#ifndef EXAMPLES_WINDOW_HOST_SERVICE_HOST_TEST_SUPPORT_H_
#define EXAMPLES_WINDOW_HOST_SERVICE_HOST_TEST_SUPPORT_H_

#include <chrono>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "core/common/rpc/serving/call_context.h"
#include "core/common/rpc/testing/fake_endpoint.h"
#include "core/common/rpc/testing/manual_sequence.h"
#include "core/common/rpc/testing/recording_call.h"
#include "core/common/rpc/testing/window_id.h"
#include "examples/window_host/service/browser.h"
#include "examples/window_host/service/window_service.h"
#include "examples/window_host/windows/fake_windows_test_support.h"
#include "gtest/gtest.h"
#include "rpc/browser/browser_window.rpc.h"

namespace window_host {

// The methods' indices in the contract.
enum StreamMethod {
  kWhenBrowserWindowClosed = 37,
  kOnCanExecuteCommand = 38,
  kOnShowContextMenu = 39,
  kOnCloseWindow = 40
};

// A client's stream. T is what the host sends on it.
template <typename T>
class TestStream {
 public:
  // `method` is its index in the service.
  TestStream(torvane::Service& service, int method)
      : stream_(service.OpenStream(service.GetDescriptor()->method(method),
                                   torvane::MakeChannel(client_))) {}
  ~TestStream() { End(); }

  void End() {
    if (stream_)
      stream_->OnCompleted();
    stream_.reset();
  }

  // Everything received so far.
  std::vector<T> Received() const {
    std::vector<T> messages(client_->frames.size());
    for (size_t i = 0; i < messages.size(); ++i)
      messages[i].ParseFromString(client_->frames[i].payload());
    return messages;
  }

  void Send(const google::protobuf::Message& message, int64_t call_id = 0) {
    rpc::transport::StreamMessage frame = MakeFrame(message, call_id);
    stream_->OnNext(&frame);
  }

  // For event streams: subscribes to the window, or to all of them under 0,
  // which makes the empty key.
  void Watch(int64_t id) {
    rpc::EventSubscription subscription;
    *subscription.mutable_subscribe_to() = torvane::WindowId(id);
    Send(subscription);
  }

  // For callback streams: subscribes; answers or declines the latest question.
  void AnswerFor(int64_t id) {
    T subscription;
    subscription.mutable_browser_id()->set_value(id);
    subscription.set_subscribe(true);
    Send(subscription);
  }
  template <typename U = T>
  void Answer(const typename U::Response& response) {
    T answer;
    *answer.mutable_browser_id() = Received().back().browser_id();
    *answer.mutable_response() = response;
    Send(answer, client_->frames.back().call_id());
  }
  void Decline() {
    T error;
    *error.mutable_browser_id() = Received().back().browser_id();
    rpc::transport::StreamMessage frame =
        MakeFrame(error, client_->frames.back().call_id());
    stream_->OnError(&frame);
  }

 private:
  static rpc::transport::StreamMessage MakeFrame(
      const google::protobuf::Message& message,
      int64_t call_id) {
    rpc::transport::StreamMessage frame;
    message.SerializeToString(frame.mutable_payload());
    frame.set_call_id(call_id);
    return frame;
  }

  const std::shared_ptr<torvane::FakeClient> client_ =
      std::make_shared<torvane::FakeClient>();
  std::unique_ptr<torvane::AbstractStream> stream_;
};

// `patience` is how long clients may take for an answer.
struct TestHost {
  explicit TestHost(std::chrono::milliseconds patience = std::chrono::hours(1))
      : browser(sequence, windows, patience) {}

  // Changes a window without a call of a client.
  void Change(int64_t id, WindowChange change) {
    windows.Change(id, std::move(change), [](const absl::Status& status) {
      EXPECT_EQ(absl::OkStatus(), status);
    });
    sequence.Run();
  }

  bool IsOpen(int64_t id) const { return windows.Inspect(id).ok(); }

  rpc::loop::ManualSequence sequence;
  FakeWindows windows{sequence};
  Browser browser;
  const std::unique_ptr<rpc::BrowserWindowRpc> service =
      MakeWindowService(windows, browser);
};

// Calls one method of the service, as a transport does.
template <typename Request, typename Response>
struct TestCall {
  using Method =
      void (rpc::BrowserWindowRpc::*)(google::protobuf::RpcController*,
                                      const Request*,
                                      Response*,
                                      google::protobuf::Closure*);

  TestCall(TestHost& host, Method method, Request the_request)
      : request(std::move(the_request)) {
    ((*host.service).*method)(&context, &request, &response, &done);
  }

  const Request request;
  Response response;
  rpc::serving::CallContext context;
  torvane::CountingClosure done;
};

}  // namespace window_host

#endif  // EXAMPLES_WINDOW_HOST_SERVICE_HOST_TEST_SUPPORT_H_
