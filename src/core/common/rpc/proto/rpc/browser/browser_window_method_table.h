// The contract, restated by hand: what each method of the service is called,
// what it takes and returns, and how it is served. Tests compare the proto file
// and the generated code with it.

#ifndef CORE_COMMON_RPC_PROTO_RPC_BROWSER_BROWSER_WINDOW_METHOD_TABLE_H_
#define CORE_COMMON_RPC_PROTO_RPC_BROWSER_BROWSER_WINDOW_METHOD_TABLE_H_

namespace rpc {

enum class MethodKind { kUnary, kEventStream, kCallbackStream };

struct MethodRow {
  const char* name;
  const char* request;
  const char* response;
  MethodKind kind;
};

inline constexpr int kUnaryMethodCount = 37;
inline constexpr int kMethodCount = 41;

// In the order of method indices.
inline constexpr MethodRow kMethodTable[kMethodCount] = {
    {"Show", "BrowserId", "google.protobuf.Empty", MethodKind::kUnary},
    {"IsVisible", "BrowserId", "google.protobuf.BoolValue", MethodKind::kUnary},
    {"Hide", "BrowserId", "google.protobuf.Empty", MethodKind::kUnary},
    {"Activate", "BrowserId", "google.protobuf.Empty", MethodKind::kUnary},
    {"IsActive", "BrowserId", "google.protobuf.BoolValue", MethodKind::kUnary},
    {"Deactivate", "BrowserId", "google.protobuf.Empty", MethodKind::kUnary},
    {"Focus", "BrowserId", "google.protobuf.Empty", MethodKind::kUnary},
    {"Maximize", "BrowserId", "google.protobuf.Empty", MethodKind::kUnary},
    {"IsMaximized", "BrowserId", "google.protobuf.BoolValue",
     MethodKind::kUnary},
    {"Minimize", "BrowserId", "google.protobuf.Empty", MethodKind::kUnary},
    {"IsMinimized", "BrowserId", "google.protobuf.BoolValue",
     MethodKind::kUnary},
    {"Restore", "BrowserId", "google.protobuf.Empty", MethodKind::kUnary},
    {"EnterFullScreen", "BrowserId", "google.protobuf.Empty",
     MethodKind::kUnary},
    {"ExitFullScreen", "BrowserId", "google.protobuf.Empty",
     MethodKind::kUnary},
    {"IsFullScreen", "BrowserId", "google.protobuf.BoolValue",
     MethodKind::kUnary},
    {"Close", "BrowserId", "google.protobuf.BoolValue", MethodKind::kUnary},
    {"SetPosition", "rpc.WindowPosition", "google.protobuf.Empty",
     MethodKind::kUnary},
    {"SetSize", "rpc.WindowSize", "google.protobuf.Empty", MethodKind::kUnary},
    {"SetBounds", "rpc.WindowBounds", "google.protobuf.Empty",
     MethodKind::kUnary},
    {"GetBounds", "BrowserId", "rpc.Rect", MethodKind::kUnary},
    {"CenterWindow", "BrowserId", "google.protobuf.Empty", MethodKind::kUnary},
    {"SetTitle", "rpc.WindowTitle", "google.protobuf.Empty",
     MethodKind::kUnary},
    {"GetTitle", "BrowserId", "google.protobuf.StringValue",
     MethodKind::kUnary},
    {"SetWindowTitleVisible", "rpc.WindowTitleVisibility",
     "google.protobuf.Empty", MethodKind::kUnary},
    {"IsWindowTitleVisible", "BrowserId", "google.protobuf.BoolValue",
     MethodKind::kUnary},
    {"SetWindowTitlebarVisible", "rpc.WindowTitlebarVisibility",
     "google.protobuf.Empty", MethodKind::kUnary},
    {"IsWindowTitlebarVisible", "BrowserId", "google.protobuf.BoolValue",
     MethodKind::kUnary},
    {"SetWindowButtonVisible", "rpc.WindowButtonVisibility",
     "google.protobuf.Empty", MethodKind::kUnary},
    {"IsWindowButtonVisible", "rpc.WindowButton", "google.protobuf.BoolValue",
     MethodKind::kUnary},
    {"SetWindowStyleFlags", "rpc.WindowStyleFlags", "google.protobuf.Empty",
     MethodKind::kUnary},
    {"GetWindowStyleFlags", "BrowserId", "rpc.WindowStyleFlags",
     MethodKind::kUnary},
    {"SetWindowDisplayPolicy", "rpc.BrowserWindowDisplayPolicy",
     "google.protobuf.Empty", MethodKind::kUnary},
    {"GetWindowDisplayPolicy", "BrowserId", "rpc.BrowserWindowDisplayPolicy",
     MethodKind::kUnary},
    {"SetWindowAnimationBehavior", "rpc.WindowAnimationBehavior",
     "google.protobuf.Empty", MethodKind::kUnary},
    {"SetActivationIndependenceEnabled", "rpc.ActivationIndependence",
     "google.protobuf.Empty", MethodKind::kUnary},
    {"IsActivationIndependenceEnabled", "BrowserId",
     "google.protobuf.BoolValue", MethodKind::kUnary},
    {"SetVibrancy", "rpc.BrowserVibrancy", "google.protobuf.Empty",
     MethodKind::kUnary},
    {"WhenBrowserWindowClosed", "rpc.EventSubscription",
     "rpc.BrowserWindowClosed", MethodKind::kEventStream},
    {"OnCanExecuteCommand", "rpc.CanExecuteCommand", "rpc.CanExecuteCommand",
     MethodKind::kCallbackStream},
    {"OnShowContextMenu", "rpc.ShowContextMenu", "rpc.ShowContextMenu",
     MethodKind::kCallbackStream},
    {"OnCloseWindow", "rpc.CloseWindow", "rpc.CloseWindow",
     MethodKind::kCallbackStream},
};

}  // namespace rpc

#endif  // CORE_COMMON_RPC_PROTO_RPC_BROWSER_BROWSER_WINDOW_METHOD_TABLE_H_
