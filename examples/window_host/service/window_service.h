// The service that lets clients drive the windows of a desktop.
//
//   window_host::Browser browser(sequence, windows, std::chrono::seconds(5));
//   const std::unique_ptr<rpc::BrowserWindowRpc> service =
//       window_host::MakeWindowService(windows, browser);
//   server.AddService(service.get());
//
// It implements every unary method of the contract; see
// rpc/browser/browser_window.proto for what they do. A method that reads
// answers at once. One that changes a window answers when the change has
// completed. Close first asks the client that answers for the window.
//
// Ownership: windows and browser are the caller's and must outlive the service.
//
// Sequence: that of the windows, which must also be that of the server.
//
// Failure: calls fail with the status of the windows, or with INVALID_ARGUMENT
// for an incomplete request and for a title beyond kMaxTitleBytes. The
// controller must be a CallContext.

#ifndef EXAMPLES_WINDOW_HOST_SERVICE_WINDOW_SERVICE_H_
#define EXAMPLES_WINDOW_HOST_SERVICE_WINDOW_SERVICE_H_

#include <memory>

#include "examples/window_host/service/browser.h"
#include "examples/window_host/windows/window_system.h"
#include "rpc/browser/browser_window.rpc.h"

namespace window_host {

std::unique_ptr<rpc::BrowserWindowRpc> MakeWindowService(WindowSystem& windows,
                                                         Browser& browser);

}  // namespace window_host

#endif  // EXAMPLES_WINDOW_HOST_SERVICE_WINDOW_SERVICE_H_
