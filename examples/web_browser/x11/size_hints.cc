#include "examples/web_browser/x11/size_hints.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "examples/web_browser/x11/atoms.h"
#include "examples/web_browser/x11/properties.h"
#include "examples/web_browser/x11/window_facts.h"
#include "examples/web_browser/x11/xlib.h"

namespace web_browser::x11 {
namespace {

// Where the property has what: see 4.1.2.3 of the Inter-Client Communication
// Conventions Manual.
constexpr size_t kFlags = 0;
constexpr size_t kMinimumWidth = 5;
constexpr size_t kMinimumHeight = 6;
constexpr size_t kMaximumWidth = 7;
constexpr size_t kMaximumHeight = 8;
constexpr size_t kLength = 18;

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
  Connection* const connection = desktop_.connection();
  const auto before =
      PropertyQuery(connection, window_, XA_WM_NORMAL_HINTS).Numbers();
  if (!before) {
    return;
  }
  std::vector<uint32_t> hints = *before;
  hints.resize(kLength);
  hints[kFlags] &= ~uint32_t{PResizeInc | PAspect | PBaseSize | PMaxSize};
  hints[kFlags] |= PMinSize;
  Size smallest = minimum_;
  if (fixed_ && !lifted_ && IsNormal(desktop_, window_)) {
    hints[kFlags] |= PMaxSize;
    smallest = *fixed_;
    hints[kMaximumWidth] = static_cast<uint32_t>(smallest.width);
    hints[kMaximumHeight] = static_cast<uint32_t>(smallest.height);
  }
  hints[kMinimumWidth] = static_cast<uint32_t>(smallest.width);
  hints[kMinimumHeight] = static_cast<uint32_t>(smallest.height);
  if (hints != *before) {
    WriteNumbers(connection, window_, XA_WM_NORMAL_HINTS, XA_WM_SIZE_HINTS,
                 hints);
  }
}

}  // namespace web_browser::x11
