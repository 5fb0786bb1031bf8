// The service that lets clients drive the windows of a desktop.
//
//   window_host::Desktop desktop(window_host::Display{});
//   window_host::Browser browser(loop, desktop, browser_options);
//   window_host::WindowService service(desktop, browser);
//   server.AddService(&service);
//
// It overrides every unary method of the contract; what the methods mean is
// said there, in rpc/browser/browser_window.proto. All of them complete before
// they return, except Close, which waits for whoever answers for the window.
//
// Ownership: desktop and browser are the caller's and must outlive the service.
//
// Sequence: that of the desktop, which is the one of the service's streams.
//
// Failure: calls fail with the desktop's status, or with INVALID_ARGUMENT for
// an incomplete request. The controller must be the transport's.

#ifndef EXAMPLES_WINDOW_HOST_WINDOW_SERVICE_H_
#define EXAMPLES_WINDOW_HOST_WINDOW_SERVICE_H_

#include <google/protobuf/empty.pb.h>
#include <google/protobuf/service.h>
#include <google/protobuf/wrappers.pb.h>

#include "absl/status/status.h"
#include "absl/status/statusor.h"
#include "examples/window_host/browser.h"
#include "examples/window_host/desktop.h"
#include "rpc/browser/browser_window.rpc.h"

namespace window_host {

class WindowService final : public rpc::BrowserWindowRpc {
 public:
  WindowService(Desktop& desktop, Browser& browser)
      : desktop_(desktop), browser_(browser) {}

  // rpc::BrowserWindowRpc:
  using Controller = google::protobuf::RpcController;
  using Closure = google::protobuf::Closure;
  using Empty = google::protobuf::Empty;
  using BoolValue = google::protobuf::BoolValue;
  using StringValue = google::protobuf::StringValue;
  void Show(Controller*, const BrowserId*, Empty*, Closure*) override;
  void IsVisible(Controller*, const BrowserId*, BoolValue*, Closure*) override;
  void Hide(Controller*, const BrowserId*, Empty*, Closure*) override;
  void Activate(Controller*, const BrowserId*, Empty*, Closure*) override;
  void IsActive(Controller*, const BrowserId*, BoolValue*, Closure*) override;
  void Deactivate(Controller*, const BrowserId*, Empty*, Closure*) override;
  void Focus(Controller*, const BrowserId*, Empty*, Closure*) override;
  void Maximize(Controller*, const BrowserId*, Empty*, Closure*) override;
  void IsMaximized(Controller*,
                   const BrowserId*,
                   BoolValue*,
                   Closure*) override;
  void Minimize(Controller*, const BrowserId*, Empty*, Closure*) override;
  void IsMinimized(Controller*,
                   const BrowserId*,
                   BoolValue*,
                   Closure*) override;
  void Restore(Controller*, const BrowserId*, Empty*, Closure*) override;
  void EnterFullScreen(Controller*,
                       const BrowserId*,
                       Empty*,
                       Closure*) override;
  void ExitFullScreen(Controller*, const BrowserId*, Empty*, Closure*) override;
  void IsFullScreen(Controller*,
                    const BrowserId*,
                    BoolValue*,
                    Closure*) override;
  void Close(Controller*, const BrowserId*, BoolValue*, Closure*) override;
  void SetPosition(Controller*,
                   const rpc::WindowPosition*,
                   Empty*,
                   Closure*) override;
  void SetSize(Controller*, const rpc::WindowSize*, Empty*, Closure*) override;
  void SetBounds(Controller*,
                 const rpc::WindowBounds*,
                 Empty*,
                 Closure*) override;
  void GetBounds(Controller*, const BrowserId*, rpc::Rect*, Closure*) override;
  void CenterWindow(Controller*, const BrowserId*, Empty*, Closure*) override;
  void SetTitle(Controller*,
                const rpc::WindowTitle*,
                Empty*,
                Closure*) override;
  void GetTitle(Controller*, const BrowserId*, StringValue*, Closure*) override;
  void SetWindowTitleVisible(Controller*,
                             const rpc::WindowTitleVisibility*,
                             Empty*,
                             Closure*) override;
  void IsWindowTitleVisible(Controller*,
                            const BrowserId*,
                            BoolValue*,
                            Closure*) override;
  void SetWindowTitlebarVisible(Controller*,
                                const rpc::WindowTitlebarVisibility*,
                                Empty*,
                                Closure*) override;
  void IsWindowTitlebarVisible(Controller*,
                               const BrowserId*,
                               BoolValue*,
                               Closure*) override;
  void SetWindowButtonVisible(Controller*,
                              const rpc::WindowButtonVisibility*,
                              Empty*,
                              Closure*) override;
  void IsWindowButtonVisible(Controller*,
                             const rpc::WindowButton*,
                             BoolValue*,
                             Closure*) override;
  void SetWindowStyleFlags(Controller*,
                           const rpc::WindowStyleFlags*,
                           Empty*,
                           Closure*) override;
  void GetWindowStyleFlags(Controller*,
                           const BrowserId*,
                           rpc::WindowStyleFlags*,
                           Closure*) override;
  void SetWindowDisplayPolicy(Controller*,
                              const rpc::BrowserWindowDisplayPolicy*,
                              Empty*,
                              Closure*) override;
  void GetWindowDisplayPolicy(Controller*,
                              const BrowserId*,
                              rpc::BrowserWindowDisplayPolicy*,
                              Closure*) override;
  void SetWindowAnimationBehavior(Controller*,
                                  const rpc::WindowAnimationBehavior*,
                                  Empty*,
                                  Closure*) override;
  void SetActivationIndependenceEnabled(Controller*,
                                        const rpc::ActivationIndependence*,
                                        Empty*,
                                        Closure*) override;
  void IsActivationIndependenceEnabled(Controller*,
                                       const BrowserId*,
                                       BoolValue*,
                                       Closure*) override;
  void SetVibrancy(Controller*,
                   const rpc::BrowserVibrancy*,
                   Empty*,
                   Closure*) override;

 private:
  // Pass the window, or its look, on to the function, if there is such a
  // window.
  template <typename Read>
  absl::Status ReadView(const BrowserId& id, Read read) const;
  template <typename Read>
  absl::Status ReadLook(const BrowserId& id, Read read) const;

  // For requests that name the window in their field browser_id.
  template <typename Request, typename Change>
  absl::Status WithLook(const Request& request, Change change) const;
  template <typename Request>
  absl::Status ChangeBounds(const Request& request, const BoundsChange& change);

  Desktop& desktop_;
  Browser& browser_;
};

}  // namespace window_host

#endif  // EXAMPLES_WINDOW_HOST_WINDOW_SERVICE_H_
