// A service that implements every unary method by recording its call.

#ifndef CORE_COMMON_RPC_PROTO_RPC_BROWSER_BROWSER_WINDOW_EVERY_UNARY_METHOD_H_
#define CORE_COMMON_RPC_PROTO_RPC_BROWSER_BROWSER_WINDOW_EVERY_UNARY_METHOD_H_

#include <vector>

#include "rpc/browser/browser_window.rpc.h"

namespace rpc {

class EveryUnaryMethod : public BrowserWindowRpc {
 public:
  struct Call {
    const char* name;
    google::protobuf::RpcController* controller;
    const google::protobuf::Message* request;
    google::protobuf::Message* response;
    google::protobuf::Closure* done;
  };
  std::vector<Call> calls;

#define RPC_RECORD_CALLS_OF(Method, Request, Response)               \
  void Method(google::protobuf::RpcController* controller,           \
              const Request* request, Response* response,            \
              google::protobuf::Closure* done) override {            \
    calls.push_back({#Method, controller, request, response, done}); \
  }

  using Empty = google::protobuf::Empty;
  using BoolValue = google::protobuf::BoolValue;
  using StringValue = google::protobuf::StringValue;

  RPC_RECORD_CALLS_OF(Show, BrowserId, Empty)
  RPC_RECORD_CALLS_OF(IsVisible, BrowserId, BoolValue)
  RPC_RECORD_CALLS_OF(Hide, BrowserId, Empty)
  RPC_RECORD_CALLS_OF(Activate, BrowserId, Empty)
  RPC_RECORD_CALLS_OF(IsActive, BrowserId, BoolValue)
  RPC_RECORD_CALLS_OF(Deactivate, BrowserId, Empty)
  RPC_RECORD_CALLS_OF(Focus, BrowserId, Empty)
  RPC_RECORD_CALLS_OF(Maximize, BrowserId, Empty)
  RPC_RECORD_CALLS_OF(IsMaximized, BrowserId, BoolValue)
  RPC_RECORD_CALLS_OF(Minimize, BrowserId, Empty)
  RPC_RECORD_CALLS_OF(IsMinimized, BrowserId, BoolValue)
  RPC_RECORD_CALLS_OF(Restore, BrowserId, Empty)
  RPC_RECORD_CALLS_OF(EnterFullScreen, BrowserId, Empty)
  RPC_RECORD_CALLS_OF(ExitFullScreen, BrowserId, Empty)
  RPC_RECORD_CALLS_OF(IsFullScreen, BrowserId, BoolValue)
  RPC_RECORD_CALLS_OF(Close, BrowserId, BoolValue)
  RPC_RECORD_CALLS_OF(SetPosition, WindowPosition, Empty)
  RPC_RECORD_CALLS_OF(SetSize, WindowSize, Empty)
  RPC_RECORD_CALLS_OF(SetBounds, WindowBounds, Empty)
  RPC_RECORD_CALLS_OF(GetBounds, BrowserId, Rect)
  RPC_RECORD_CALLS_OF(CenterWindow, BrowserId, Empty)
  RPC_RECORD_CALLS_OF(SetTitle, WindowTitle, Empty)
  RPC_RECORD_CALLS_OF(GetTitle, BrowserId, StringValue)
  RPC_RECORD_CALLS_OF(SetWindowTitleVisible, WindowTitleVisibility, Empty)
  RPC_RECORD_CALLS_OF(IsWindowTitleVisible, BrowserId, BoolValue)
  RPC_RECORD_CALLS_OF(SetWindowTitlebarVisible, WindowTitlebarVisibility, Empty)
  RPC_RECORD_CALLS_OF(IsWindowTitlebarVisible, BrowserId, BoolValue)
  RPC_RECORD_CALLS_OF(SetWindowButtonVisible, WindowButtonVisibility, Empty)
  RPC_RECORD_CALLS_OF(IsWindowButtonVisible, WindowButton, BoolValue)
  RPC_RECORD_CALLS_OF(SetWindowStyleFlags, WindowStyleFlags, Empty)
  RPC_RECORD_CALLS_OF(GetWindowStyleFlags, BrowserId, WindowStyleFlags)
  RPC_RECORD_CALLS_OF(SetWindowDisplayPolicy, BrowserWindowDisplayPolicy, Empty)
  RPC_RECORD_CALLS_OF(GetWindowDisplayPolicy,
                      BrowserId,
                      BrowserWindowDisplayPolicy)
  RPC_RECORD_CALLS_OF(SetWindowAnimationBehavior,
                      WindowAnimationBehavior,
                      Empty)
  RPC_RECORD_CALLS_OF(SetActivationIndependenceEnabled,
                      ActivationIndependence,
                      Empty)
  RPC_RECORD_CALLS_OF(IsActivationIndependenceEnabled, BrowserId, BoolValue)
  RPC_RECORD_CALLS_OF(SetVibrancy, BrowserVibrancy, Empty)

#undef RPC_RECORD_CALLS_OF
};

}  // namespace rpc

#endif  // CORE_COMMON_RPC_PROTO_RPC_BROWSER_BROWSER_WINDOW_EVERY_UNARY_METHOD_H_
