// Brings one window to where it is meant to be, one step after the other, each
// of which the window manager confirms before the next one is taken.
//
//   Adjust(desktop, frame, window, target, [](const absl::Status& status) {
//     ...
//   });
//
// What is so already takes no step. The first step that the window manager
// refuses, or does not confirm in time, ends it with that status; steps taken
// before stay taken.
//
// Ownership: desktop, frame and window are the caller's and must outlive it.
//
// Sequence: the desktop's. `done` runs once, at once where nothing is to be
// done.
//
// Failure: as the operations of x11::ManagedWindow.

#ifndef EXAMPLES_WEB_BROWSER_DESKTOP_ADJUSTMENT_H_
#define EXAMPLES_WEB_BROWSER_DESKTOP_ADJUSTMENT_H_

#include "examples/web_browser/frame/frame.h"
#include "examples/web_browser/x11/desktop.h"
#include "examples/web_browser/x11/managed_window.h"
#include "examples/window_host/windows/window_form.h"
#include "examples/window_host/windows/window_system.h"

namespace web_browser {

// Where a window is meant to be.
struct Target {
  window_host::WindowForm form;
  rpc::BrowserWindowDisplayPolicy::Policy policy =
      rpc::BrowserWindowDisplayPolicy::POLICY_ONE_WORKSPACE;
  bool utility = false;
  // It is to become the active one; otherwise it stays what it is.
  bool active = false;
  // It must have exactly its normal bounds, if it is normal and visible.
  // Otherwise a window manager that gives it others has the last word.
  bool exact_bounds = false;
};

// Whether the window is minimized. Window managers say the same of WM_STATE for
// windows on other workspaces, which are not.
bool IsMinimized(const x11::WindowFacts& facts);

// Brings the window to its target. `present` is what has just been read of it.
void Adjust(x11::Desktop& desktop,
            Frame& frame,
            x11::ManagedWindow& window,
            const x11::WindowFacts& present,
            const Target& target,
            window_host::Completion done);

}  // namespace web_browser

#endif  // EXAMPLES_WEB_BROWSER_DESKTOP_ADJUSTMENT_H_
