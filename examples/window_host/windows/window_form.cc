#include "examples/window_host/windows/window_form.h"

#include <algorithm>
#include <optional>

#include "absl/strings/str_cat.h"

namespace window_host {
namespace {

constexpr int kFirstWidth = 1024;
constexpr int kFirstHeight = 700;

// Offset of each new window, so that it does not cover another's title bar.
constexpr int kCascadeStep = 32;
constexpr int kCascadeLength = 8;

absl::Status CheckLength(const char* name, std::optional<int> length) {
  if (length.value_or(0) >= 0)
    return absl::OkStatus();
  return absl::InvalidArgumentError(absl::StrCat("The ", name, " is ", *length,
                                                 ": it must not be negative."));
}

ActivationChange BringBack(WindowForm& form) {
  if (!form.minimized)
    return ActivationChange::kNone;
  form.minimized = false;
  return form.shown ? ActivationChange::kTake : ActivationChange::kNone;
}

ActivationChange Restore(WindowForm& form) {
  if (form.minimized)
    return BringBack(form);
  if (form.full_screen)
    form.full_screen = false;
  else
    form.maximized = false;
  return ActivationChange::kNone;
}

}  // namespace

WindowState WindowForm::state() const {
  if (minimized)
    return WindowState::kMinimized;
  if (full_screen)
    return WindowState::kFullScreen;
  return maximized ? WindowState::kMaximized : WindowState::kNormal;
}

absl::StatusOr<ActivationChange> ApplyAction(WindowAction action,
                                             int64_t id,
                                             WindowForm& form) {
  switch (action) {
    case WindowAction::kShow:
      form.shown = true;
      form.minimized = false;
      return ActivationChange::kTake;
    case WindowAction::kHide:
      form.shown = false;
      return ActivationChange::kPassOn;
    case WindowAction::kActivate:
    case WindowAction::kFocus:
      if (!form.shown) {
        return absl::FailedPreconditionError(
            absl::StrCat("Window ", id, " is hidden: show it first."));
      }
      form.minimized = false;
      return ActivationChange::kTake;
    case WindowAction::kDeactivate:
      return ActivationChange::kPassOn;
    case WindowAction::kMaximize:
      form.maximized = true;
      form.full_screen = false;
      return BringBack(form);
    case WindowAction::kMinimize:
      form.minimized = true;
      return ActivationChange::kPassOn;
    case WindowAction::kRestore:
      return Restore(form);
    case WindowAction::kEnterFullScreen:
      form.full_screen = true;
      return BringBack(form);
    case WindowAction::kExitFullScreen:
      if (!form.minimized)
        form.full_screen = false;
      return ActivationChange::kNone;
    case WindowAction::kCenter:
      return ActivationChange::kNone;
  }
  return ActivationChange::kNone;
}

absl::Status ApplyBounds(const BoundsChange& change, WindowForm& form) {
  if (absl::Status width = CheckLength("width", change.width); !width.ok())
    return width;
  if (absl::Status height = CheckLength("height", change.height); !height.ok())
    return height;
  Rect& bounds = form.normal_bounds;
  bounds.x = change.x.value_or(bounds.x);
  bounds.y = change.y.value_or(bounds.y);
  bounds.width = std::max(change.width.value_or(bounds.width), kMinimumWidth);
  bounds.height =
      std::max(change.height.value_or(bounds.height), kMinimumHeight);
  return absl::OkStatus();
}

Rect Centered(const Rect& bounds, const Rect& area) {
  return {area.x + std::max(0, (area.width - bounds.width) / 2),
          area.y + std::max(0, (area.height - bounds.height) / 2), bounds.width,
          bounds.height};
}

Rect FirstBounds(int64_t id, const Rect& work_area) {
  const int step = static_cast<int>((id - 1) % kCascadeLength) * kCascadeStep;
  return {work_area.x + step, work_area.y + step, kFirstWidth, kFirstHeight};
}

}  // namespace window_host
