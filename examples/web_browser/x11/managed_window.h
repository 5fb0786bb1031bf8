// One of our windows as the window manager sees it: reads what it has confirmed
// and requests changes.
//
//   ManagedWindow window(desktop, xid, 7);
//   window.SetMaximized(true, [](const absl::Status& status) { ... });
//   absl::StatusOr<WindowFacts> facts = window.Read();
//
// A completion runs exactly once, as a task of the desktop's sequence, never
// from within the operation. Its status is
//
//   OK                   it is so: Read(), and everybody else who asks the
//                        server, sees it;
//   NOT_FOUND            "No window 7.": the window is gone, before or
//   meanwhile; FAILED_PRECONDITION  "Openbox refused to maximize window 7.";
//   UNAVAILABLE          "There is no window manager to maximize window 7.";
//   DEADLINE_EXCEEDED    "Openbox did not answer in time to maximize
//   window 7.":
//                        it hangs. It may still do it when it comes to itself.
//   OUT_OF_RANGE         bounds that X cannot express.
//
// One change at a time, all windows together (change_queue.h).
//
// Mapping and unmapping stay with the toolkit, which must know about it:
// AwaitShown() and AwaitHidden() are called right after it has done so, on the
// same connection, and only wait.
//
// The window belongs to somebody else, such as GTK, who may destroy it at any
// time. Undecorated windows are exact in all coordinates. So are decorated
// ones, but their bounds are those of what is inside of the frame.
//
// Ownership: the desktop must outlive this; the window stays its maker's. When
// this object goes, completions that wait are called with NOT_FOUND, once the
// window manager has come past what was requested.
//
// Sequence: the desktop's.
//
// Failure: as above.

#ifndef EXAMPLES_WEB_BROWSER_X11_MANAGED_WINDOW_H_
#define EXAMPLES_WEB_BROWSER_X11_MANAGED_WINDOW_H_

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "absl/functional/any_invocable.h"
#include "absl/status/status.h"
#include "absl/status/statusor.h"
#include "examples/web_browser/x11/desktop.h"
#include "examples/web_browser/x11/monitors.h"
#include "examples/web_browser/x11/pixels.h"
#include "examples/web_browser/x11/window_facts.h"
#include "examples/web_browser/x11/x11_types.h"

namespace web_browser::x11 {

// The window manager learns of a new active window from the server, after it
// has asked for it: by the second fence.
inline constexpr int kPassesOfActivation = 2;

class ManagedWindow {
 public:
  // `id` is what texts call it.
  ManagedWindow(Desktop& desktop, WindowId window, int64_t id);
  ManagedWindow(const ManagedWindow&) = delete;
  ManagedWindow& operator=(const ManagedWindow&) = delete;
  ~ManagedWindow();

  // What is confirmed now, asked of the server. NOT_FOUND if it is gone.
  absl::StatusOr<WindowFacts> Read() const;

  // The window has just been mapped: waits until the window manager manages it
  // and it is on the screen.
  void AwaitShown(Completion done);
  // The window has just been unmapped.
  void AwaitHidden(Completion done);

  // Makes it the active window and raises it, out of its minimized state where
  // necessary.
  void Activate(Completion done);

  // Passes the activation on: to `next`, or to none of the managed windows
  // where that is 0. Does nothing if the window is not active.
  void Deactivate(WindowId next, Completion done);

  // Both directions at once.
  void SetMaximized(bool maximized, Completion done);
  void SetFullScreen(bool full_screen, Completion done);

  void Minimize(Completion done);
  // Out of its minimized state. What window managers do about the activation
  // then differs: Activate() says it.
  void BringBack(Completion done);

  // Of a normal window; one that is maximized or full screen ignores it, and is
  // then refused. Sizes below the minimum become the minimum.
  //
  // A window manager may refuse by putting the window elsewhere. The text then
  // says where, as in "Openbox put window 7 at 1260,790 with 200 x 100 pixels
  // instead.": openbox keeps a tenth of each window on the screen, xfwm4 some
  // 30 pixels. Without a window manager the server does it, and that is OK.
  void SetBounds(const PixelRect& bounds, Completion done);

  // A workspace, counted from 0, or kAllWorkspaces.
  void SetWorkspace(uint32_t workspace, Completion done);

  // Whether task bars leave it out.
  void SetSkipTaskbar(bool skip, Completion done);

  // Waits for anything else that was requested just before: `what` as in "paint
  // window 7", `look` as in confirmations.h.
  void Await(std::string_view what,
             absl::AnyInvocable<Verdict()> look,
             Completion done);

  // Own properties, which nobody needs to confirm: when one of these returns,
  // everybody sees it. NOT_FOUND if the window is gone.
  //
  // The title must be valid UTF-8 and short: cleaning it is the caller's.
  absl::Status SetTitle(std::string_view title);
  // Whether the window manager may give it the keyboard by itself. Activate()
  // works anyway: it allows it for as long as that takes.
  absl::Status SetTakesFocus(bool takes_focus);

  // The window's size hints. Toolkits write these again and again; what is set
  // here is put back each time (size_hints.h).
  //
  // Smallest size, in pixels; 1 x 1 unless it is set.
  void SetMinimumSize(int width, int height);
  // Whether the user may resize it. The operations above change one that may
  // not be resized all the same.
  void SetResizable(bool resizable);

  // Takes note of an event; those of other windows, too.
  void OnEvent(const Event& event);

  WindowId window() const { return window_; }
  int64_t id() const { return id_; }

 private:
  struct State;
  // A request to the window manager and how to see that it has been granted.
  struct Request;

  void Make(Request request, Completion done);
  void SetStates(std::string_view what,
                 bool set,
                 AtomId first,
                 AtomId second,
                 absl::AnyInvocable<Verdict()> look,
                 Completion done,
                 int passes = 1);
  void TryBounds(const PixelRect& wanted,
                 const WindowFacts& before,
                 int tries,
                 Completion done);
  // `frame` is what is around the window by now.
  void SendBounds(const PixelRect& bounds,
                  const std::optional<FrameExtents>& frame);
  absl::Status BoundsRefusal(const PixelRect& before) const;
  // Whether the frame covers this area of the monitor that it is on.
  bool FillsItsMonitor(PixelRect Monitor::*area) const;
  // Whether the window manager may give the window the keyboard. False if the
  // window is gone.
  bool WriteInputHint(bool input) const;
  absl::Status NoWindow() const;

  Desktop& desktop_;
  const WindowId window_;
  const int64_t id_;
  const std::shared_ptr<State> state_;
};

}  // namespace web_browser::x11

#endif  // EXAMPLES_WEB_BROWSER_X11_MANAGED_WINDOW_H_
