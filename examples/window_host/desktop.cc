#include "examples/window_host/desktop.h"

#include <algorithm>

#include "absl/strings/str_cat.h"

namespace window_host {
namespace {

constexpr int kFirstWidth = 1024;
constexpr int kFirstHeight = 700;

// New windows step down and to the right, so that none covers another's title.
constexpr int kCascadeStep = 32;
constexpr int kCascadeLength = 8;

Rect FirstBounds(int64_t id, const Rect& work_area) {
  const int step = static_cast<int>((id - 1) % kCascadeLength) * kCascadeStep;
  return {work_area.x + step, work_area.y + step, kFirstWidth, kFirstHeight};
}

WindowLook FirstLook(int64_t id) {
  WindowLook look;
  look.title = absl::StrCat("Window ", id);
  look.style.set_titled(true);
  look.style.set_closable(true);
  look.style.set_minimizable(true);
  look.style.set_resizable(true);
  look.display_policy.set_policy(
      rpc::BrowserWindowDisplayPolicy::POLICY_ONE_WORKSPACE);
  look.animation.set_behavior(rpc::WindowAnimationBehavior::BEHAVIOR_DEFAULT);
  look.vibrancy.set_material(rpc::BrowserVibrancy::MATERIAL_NONE);
  look.vibrancy.set_state(rpc::BrowserVibrancy::STATE_FOLLOWS_WINDOW);
  return look;
}

absl::Status NoWindow(int64_t id) {
  return absl::NotFoundError(absl::StrCat("No window ", id, "."));
}

absl::Status CheckLength(const char* name, std::optional<int> length) {
  if (length.value_or(0) >= 0)
    return absl::OkStatus();
  return absl::InvalidArgumentError(absl::StrCat("The ", name, " is ", *length,
                                                 ": it must not be negative."));
}

}  // namespace

WindowState Desktop::Window::state() const {
  if (minimized)
    return WindowState::kMinimized;
  if (full_screen)
    return WindowState::kFullScreen;
  return maximized ? WindowState::kMaximized : WindowState::kNormal;
}

Desktop::Desktop(const Display& display) : display_(display) {}

int64_t Desktop::Open() {
  const int64_t id = ++last_id_;
  Window& window = windows_[id];
  window.normal_bounds = FirstBounds(id, display_.work_area);
  window.look = FirstLook(id);
  MakeActive(id);
  return id;
}

absl::Status Desktop::Close(int64_t id) {
  Window* window = Find(id);
  if (!window)
    return NoWindow(id);
  PassActivationOn(id);
  std::erase(stacking_, id);
  windows_.erase(id);
  return absl::OkStatus();
}

absl::Status Desktop::Show(int64_t id) {
  Window* window = Find(id);
  if (!window)
    return NoWindow(id);
  window->shown = true;
  return Activate(id);
}

absl::Status Desktop::Hide(int64_t id) {
  Window* window = Find(id);
  if (!window)
    return NoWindow(id);
  window->shown = false;
  PassActivationOn(id);
  return absl::OkStatus();
}

absl::Status Desktop::Activate(int64_t id) {
  Window* window = Find(id);
  if (!window)
    return NoWindow(id);
  if (!window->shown) {
    return absl::FailedPreconditionError(
        absl::StrCat("Window ", id, " is hidden: show it first."));
  }
  window->minimized = false;
  MakeActive(id);
  return absl::OkStatus();
}

absl::Status Desktop::Focus(int64_t id) {
  absl::Status status = Activate(id);
  if (status.ok())
    page_has_keyboard_ = true;
  return status;
}

absl::Status Desktop::Deactivate(int64_t id) {
  Window* window = Find(id);
  if (!window)
    return NoWindow(id);
  PassActivationOn(id);
  return absl::OkStatus();
}

absl::Status Desktop::Maximize(int64_t id) {
  Window* window = Find(id);
  if (!window)
    return NoWindow(id);
  window->maximized = true;
  window->full_screen = false;
  BringBack(id, *window);
  return absl::OkStatus();
}

absl::Status Desktop::EnterFullScreen(int64_t id) {
  Window* window = Find(id);
  if (!window)
    return NoWindow(id);
  window->full_screen = true;
  BringBack(id, *window);
  return absl::OkStatus();
}

absl::Status Desktop::Restore(int64_t id) {
  Window* window = Find(id);
  if (!window)
    return NoWindow(id);
  if (window->minimized) {
    BringBack(id, *window);
  } else if (window->full_screen) {
    window->full_screen = false;
  } else {
    window->maximized = false;
  }
  return absl::OkStatus();
}

absl::Status Desktop::ExitFullScreen(int64_t id) {
  Window* window = Find(id);
  if (!window)
    return NoWindow(id);
  if (window->state() == WindowState::kFullScreen)
    window->full_screen = false;
  return absl::OkStatus();
}

absl::Status Desktop::Minimize(int64_t id) {
  Window* window = Find(id);
  if (!window)
    return NoWindow(id);
  window->minimized = true;
  PassActivationOn(id);
  return absl::OkStatus();
}

absl::Status Desktop::SetBounds(int64_t id, const BoundsChange& change) {
  Window* window = Find(id);
  if (!window)
    return NoWindow(id);
  if (absl::Status width = CheckLength("width", change.width); !width.ok())
    return width;
  if (absl::Status height = CheckLength("height", change.height); !height.ok())
    return height;
  Rect& bounds = window->normal_bounds;
  bounds.x = change.x.value_or(bounds.x);
  bounds.y = change.y.value_or(bounds.y);
  bounds.width = std::max(change.width.value_or(bounds.width), kMinimumWidth);
  bounds.height =
      std::max(change.height.value_or(bounds.height), kMinimumHeight);
  return absl::OkStatus();
}

absl::Status Desktop::Center(int64_t id) {
  Window* window = Find(id);
  if (!window)
    return NoWindow(id);
  // A window larger than the work area keeps its title bar on the screen.
  const Rect& area = display_.work_area;
  Rect& bounds = window->normal_bounds;
  bounds.x = area.x + std::max(0, (area.width - bounds.width) / 2);
  bounds.y = area.y + std::max(0, (area.height - bounds.height) / 2);
  return absl::OkStatus();
}

absl::StatusOr<WindowView> Desktop::Inspect(int64_t id) const {
  auto it = windows_.find(id);
  if (it == windows_.end())
    return NoWindow(id);
  const Window& window = it->second;
  WindowView view;
  view.id = id;
  view.state = window.state();
  view.visible = window.visible();
  view.active = id == active_;
  view.page_has_keyboard = view.active && page_has_keyboard_;
  if (window.full_screen) {
    view.bounds = display_.bounds;
  } else {
    view.bounds = window.maximized ? display_.work_area : window.normal_bounds;
  }
  return view;
}

absl::StatusOr<WindowLook*> Desktop::Look(int64_t id) {
  Window* window = Find(id);
  if (!window)
    return NoWindow(id);
  return &window->look;
}

Desktop::Window* Desktop::Find(int64_t id) {
  auto it = windows_.find(id);
  return it == windows_.end() ? nullptr : &it->second;
}

void Desktop::MakeActive(int64_t id) {
  std::erase(stacking_, id);
  stacking_.insert(stacking_.begin(), id);
  if (active_ == id)
    return;
  active_ = id;
  page_has_keyboard_ = false;
}

void Desktop::BringBack(int64_t id, Window& window) {
  if (!window.minimized)
    return;
  window.minimized = false;
  if (window.shown)
    MakeActive(id);
}

void Desktop::PassActivationOn(int64_t id) {
  if (active_ != id)
    return;
  active_ = 0;
  page_has_keyboard_ = false;
  for (int64_t next : stacking_) {
    const Window& window = windows_.at(next);
    if (next != id && window.visible() && !window.look.activation_independent)
      return MakeActive(next);
  }
}

}  // namespace window_host
