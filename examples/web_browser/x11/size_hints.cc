#include "examples/web_browser/x11/size_hints.h"

#include <algorithm>

#include "examples/web_browser/x11/atoms.h"
#include "examples/web_browser/x11/error_trap.h"
#include "examples/web_browser/x11/window_facts.h"
#include "examples/web_browser/x11/xlib.h"

namespace web_browser::x11 {
namespace {

bool AreEqual(const XSizeHints& one, const XSizeHints& other) {
  const auto sizes_equal = [&](long flag, auto width, auto height) {
    return (one.flags & flag) == 0 ||
           (one.*width == other.*width && one.*height == other.*height);
  };
  return one.flags == other.flags &&
         sizes_equal(PMinSize, &XSizeHints::min_width,
                     &XSizeHints::min_height) &&
         sizes_equal(PMaxSize, &XSizeHints::max_width, &XSizeHints::max_height);
}

bool IsNormal(const Desktop& desktop, WindowId window) {
  const auto states = ReadStates(desktop, window);
  return states && !states->maximized_vertically &&
         !states->maximized_horizontally && !states->full_screen;
}

}  // namespace

SizeHints::SizeHints(Desktop& desktop, WindowId window)
    : desktop_(desktop), window_(window) {
  Correct();
}

void SizeHints::SetMinimum(int width, int height) {
  minimum_ = {std::max(1, width), std::max(1, height)};
  Correct();
}

void SizeHints::SetResizable(bool resizable) {
  resizable_ = resizable;
  FixSize();
  Correct();
}

void SizeHints::Lift() {
  if (resizable_) {
    return;
  }
  lifted_ = true;
  Correct();
}

void SizeHints::Settle() {
  if (!lifted_) {
    return;
  }
  lifted_ = false;
  FixSize();
  Correct();
}

void SizeHints::OnEvent(const Event& event) {
  if (event.type == PropertyNotify && event.xproperty.window == window_ &&
      (event.xproperty.atom == XA_WM_NORMAL_HINTS ||
       (!resizable_ &&
        event.xproperty.atom == desktop_.atoms().net_wm_state))) {
    return Correct();
  }
  // Its size as a normal window was not known, since it was not normal.
  if (event.type == ConfigureNotify && event.xconfigure.window == window_ &&
      !resizable_ && !lifted_ && !fixed_) {
    FixSize();
    Correct();
  }
}

void SizeHints::FixSize() {
  if (!resizable_ && !IsNormal(desktop_, window_)) {
    return;
  }
  fixed_.reset();
  const auto bounds = ReadBounds(desktop_, window_);
  if (!resizable_ && bounds) {
    fixed_ = {bounds->width, bounds->height};
  }
}

void SizeHints::Correct() {
  ErrorTrap trap(desktop_.connection());
  XSizeHints hints{};
  long supplied = 0;
  // Fails where there are none yet.
  XGetWMNormalHints(desktop_.connection(), window_, &hints, &supplied);
  if (trap.HasCaught()) {
    return;
  }
  const XSizeHints before = hints;
  hints.flags &= ~(PResizeInc | PAspect | PBaseSize | PMaxSize);
  hints.flags |= PMinSize;
  hints.min_width = minimum_.width;
  hints.min_height = minimum_.height;
  if (fixed_ && !lifted_ && IsNormal(desktop_, window_)) {
    hints.flags |= PMaxSize;
    hints.min_width = hints.max_width = fixed_->width;
    hints.min_height = hints.max_height = fixed_->height;
  }
  if (!AreEqual(hints, before)) {
    XSetWMNormalHints(desktop_.connection(), window_, &hints);
  }
}

}  // namespace web_browser::x11
