// A display with its window manager, as one program sees it: what the window
// manager has confirmed about the desktop as a whole, and what waits for a
// confirmation.
//
//   Desktop desktop(connection, loop);
//   ManagedWindow window(desktop, xid, 7);
//   ...
//   desktop.OnEvent(event);        for every event that the connection brings
//
// Whoever reads the connection's events hands every one of them over, before or
// after doing something about it: GDK's filter for all windows
// (gdk_window_add_filter(nullptr, ...)), or a loop of one's own
// (testing/event_pump.h). Reading state may take events off the wire into
// Xlib's queue; a loop of one's own looks there (XPending) before it waits.
//
// Ownership: the connection stays the caller's and must outlive this, and this
// the windows. One for a connection.
//
// Sequence: that of the constructor, on which the connection is used.
//
// Failure: a window manager that is missing, hangs or refuses is said in the
// status of each change. Errors of X about windows that are gone are caught
// where they can happen; no others are.

#ifndef EXAMPLES_WEB_BROWSER_X11_DESKTOP_H_
#define EXAMPLES_WEB_BROWSER_X11_DESKTOP_H_

#include <array>
#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "absl/status/status.h"
#include "core/common/rpc/loop/sequence.h"
#include "examples/web_browser/x11/confirmations.h"
#include "examples/web_browser/x11/fence.h"
#include "examples/web_browser/x11/mark.h"
#include "examples/web_browser/x11/x11_types.h"

namespace web_browser::x11 {

struct Atoms;

class Desktop {
 public:
  // `deadline` is how long the window manager may let a change wait before it
  // counts as hanging.
  Desktop(Connection* connection,
          rpc::loop::Sequence& sequence,
          std::chrono::milliseconds deadline = Confirmations::kDeadline);
  Desktop(const Desktop&) = delete;
  Desktop& operator=(const Desktop&) = delete;
  ~Desktop();

  void OnEvent(const Event& event);

  // Whether a window manager is there, asked of the server just now.
  bool HasWindowManager() const;

  // What the window manager calls itself, such as "Openbox". Where there is
  // none, or it has no name: "the window manager".
  std::string WindowManagerName() const;

  // The active window, which need not be one of ours; 0 for none.
  WindowId ActiveWindow() const;

  // The windows that the window manager manages, the lowest first.
  std::vector<WindowId> Stacking() const;

  // The current workspace, counted from 0.
  uint32_t CurrentWorkspace() const;

  // What a change of window `id` that does not show ends with: UNAVAILABLE
  // without a window manager, else FAILED_PRECONDITION, as in "Openbox refused
  // to maximize window 7." `what` is "maximize window 7".
  absl::Status Refusal(std::string_view what) const;

  // DEADLINE_EXCEEDED: "Openbox did not answer in time to maximize window 7."
  absl::Status Timeout(std::string_view what) const;

  // What ManagedWindow needs, and whoever requests something of his own.
  //
  // Has the connection told of these events of the window, besides those that
  // it is told of already. False if there is no such window.
  bool Select(WindowId window, uint32_t events);
  // Sends a client message about the window to the window manager.
  void SendToWindowManager(WindowId window,
                           AtomId type,
                           const std::array<long, 5>& data);
  // A window that nobody sees and no window manager manages: when it has the
  // keyboard, no other one has.
  WindowId FocusWindow();

  // Calls it on a later turn.
  void Finish(Completion done, absl::Status status);

  Connection* connection() const { return connection_; }
  // The same one, for what need not wait for each answer (query.h).
  XcbConnection* xcb() const { return xcb_; }
  WindowId root() const { return root_; }
  const Atoms& atoms() const { return *atoms_; }
  Confirmations& confirmations() { return confirmations_; }

 private:
  // The window by which a window manager shows that it is there; 0 for none.
  WindowId CheckWindow() const;

  Connection* const connection_;
  XcbConnection* const xcb_;
  rpc::loop::Sequence& sequence_;
  const WindowId root_;
  const std::unique_ptr<const Atoms> atoms_;
  Fence fence_;
  Mark mark_;
  Confirmations confirmations_;
  // Made when it is needed first.
  WindowId focus_window_ = 0;
};

}  // namespace web_browser::x11

#endif  // EXAMPLES_WEB_BROWSER_X11_DESKTOP_H_
