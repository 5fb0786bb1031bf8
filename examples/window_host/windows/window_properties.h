// What a client may set of a window in any state, the same on every desktop:
// what a new window has of it, and what the messages change.
//
// Ownership: plain data.
//
// Sequence: any.
//
// Failure: none. Requests have been checked by the service.

#ifndef EXAMPLES_WINDOW_HOST_WINDOWS_WINDOW_PROPERTIES_H_
#define EXAMPLES_WINDOW_HOST_WINDOWS_WINDOW_PROPERTIES_H_

#include <cstdint>

#include "examples/window_host/windows/window_system.h"

namespace window_host {

// A new window's properties; its state is the desktop's.
WindowView FirstView(int64_t id);

void SetProperty(const rpc::WindowTitle& request, WindowView& view);
void SetProperty(const rpc::WindowTitleVisibility& request, WindowView& view);
void SetProperty(const rpc::WindowTitlebarVisibility& request,
                 WindowView& view);
void SetProperty(const rpc::WindowButtonVisibility& request, WindowView& view);
void SetProperty(const rpc::WindowStyleFlags& request, WindowView& view);
void SetProperty(const rpc::BrowserWindowDisplayPolicy& request,
                 WindowView& view);
void SetProperty(const rpc::WindowAnimationBehavior& request, WindowView& view);
void SetProperty(const rpc::ActivationIndependence& request, WindowView& view);
void SetProperty(const rpc::BrowserVibrancy& request, WindowView& view);

}  // namespace window_host

#endif  // EXAMPLES_WINDOW_HOST_WINDOWS_WINDOW_PROPERTIES_H_
