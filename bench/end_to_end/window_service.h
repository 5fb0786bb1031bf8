// The service that is measured: it does nothing but answer, publish and say
// that it is ready.
//
// Ownership: the program's. Sequence: the server's.
//
// Failure: none.

#ifndef BENCH_END_TO_END_WINDOW_SERVICE_H_
#define BENCH_END_TO_END_WINDOW_SERVICE_H_

#include <functional>
#include <utility>

#include "bench/support/process_pair.h"
#include "core/common/rpc/stream/event_stream.h"
#include "rpc/browser/browser_window.rpc.h"

namespace bench {

class WindowService final : public rpc::BrowserWindowRpc {
 public:
  void IsVisible(google::protobuf::RpcController*,
                 const BrowserId* request,
                 google::protobuf::BoolValue* response,
                 google::protobuf::Closure* done) override {
    response->set_value(request->value() == bench::kWindow);
    done->Run();
  }

  void Close(google::protobuf::RpcController*,
             const BrowserId* request,
             google::protobuf::BoolValue* response,
             google::protobuf::Closure* done) override {
    rpc::BrowserWindowClosed event;
    *event.mutable_browser_id() = *request;
    event.set_reason(rpc::WINDOW_CLOSE_REASON_CALL);
    event.set_title(bench::kTitle);
    torvane::EventStream<rpc::BrowserWindowClosed>::Publish(*request, event);
    response->set_value(true);
    done->Run();
  }

  // A client that answers questions calls this when it has subscribed.
  void Focus(google::protobuf::RpcController*,
             const BrowserId*,
             google::protobuf::Empty*,
             google::protobuf::Closure* done) override {
    done->Run();
    on_ready_();
  }

  void set_on_ready(std::function<void()> on_ready) {
    on_ready_ = std::move(on_ready);
  }

 private:
  std::function<void()> on_ready_;
};

}  // namespace bench

#endif  // BENCH_END_TO_END_WINDOW_SERVICE_H_
