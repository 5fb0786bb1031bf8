// The size hints of a window (WM_NORMAL_HINTS), as we want them, whatever its
// toolkit writes there.
//
// A toolkit writes the hints as it sees fit, and again at any time. Two things
// in them are in the way of exact bounds: GTK asks for sizes in steps of the
// scale, which window managers apply to the frame, so that odd sizes cannot be
// had; and a window that may not be resized is neither maximized nor resized by
// a window manager, although the service wants it. So the hints are rewritten
// after each change: without steps and aspect, with our minimum, and, where the
// user may not resize the window, with its present size as the only one.
//
//   SizeHints hints(desktop, window);
//   hints.OnEvent(event);                     for each event
//   {
//     hints.Lift();                           any size is possible now
//     ...
//     hints.Settle();                         and again only what was asked for
//   }
//
// Ownership: the desktop must outlive this; the window stays its maker's.
//
// Sequence: the desktop's.
//
// Failure: none; a window that is gone has no hints.

#ifndef EXAMPLES_WEB_BROWSER_X11_SIZE_HINTS_H_
#define EXAMPLES_WEB_BROWSER_X11_SIZE_HINTS_H_

#include <optional>

#include "examples/web_browser/x11/desktop.h"
#include "examples/web_browser/x11/x11_types.h"

namespace web_browser::x11 {

class SizeHints {
 public:
  SizeHints(Desktop& desktop, WindowId window);
  SizeHints(const SizeHints&) = delete;
  SizeHints& operator=(const SizeHints&) = delete;

  // The smallest size, in pixels.
  void SetMinimum(int width, int height);
  int minimum_width() const { return minimum_.width; }
  int minimum_height() const { return minimum_.height; }

  // Whether the user may resize the window.
  void SetResizable(bool resizable);

  // From Lift() to Settle() the window may have any size from the minimum on.
  // Does nothing to one that may be resized anyway.
  void Lift();
  void Settle();

  // Takes note of an event; those of other windows, too.
  void OnEvent(const Event& event);

 private:
  struct Size {
    int width;
    int height;
  };

  // Writes the hints, unless they are what they should be.
  void Correct();
  // Keeps the present size as the only one, if the window is normal.
  void FixSize();

  Desktop& desktop_;
  const WindowId window_;
  Size minimum_{1, 1};
  bool resizable_ = true;
  bool lifted_ = false;
  // Of the normal window, when it may not be resized. Absent while it is not
  // known.
  std::optional<Size> fixed_;
};

}  // namespace web_browser::x11

#endif  // EXAMPLES_WEB_BROWSER_X11_SIZE_HINTS_H_
