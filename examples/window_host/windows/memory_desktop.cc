#include "examples/window_host/windows/memory_desktop.h"

#include <algorithm>
#include <utility>

#include "absl/strings/str_cat.h"

namespace window_host {
namespace {

constexpr int kFirstWidth = 1024;
constexpr int kFirstHeight = 700;

// Offset of each new window, so that it does not cover another's title bar.
constexpr int kCascadeStep = 32;
constexpr int kCascadeLength = 8;

Rect FirstBounds(int64_t id, const Rect& work_area) {
  const int step = static_cast<int>((id - 1) % kCascadeLength) * kCascadeStep;
  return {work_area.x + step, work_area.y + step, kFirstWidth, kFirstHeight};
}

WindowView FirstView(int64_t id) {
  WindowView view;
  view.id = id;
  view.title = absl::StrCat("Window ", id);
  view.style.set_titled(true);
  view.style.set_closable(true);
  view.style.set_minimizable(true);
  view.style.set_resizable(true);
  view.display_policy.set_policy(
      rpc::BrowserWindowDisplayPolicy::POLICY_ONE_WORKSPACE);
  view.animation.set_behavior(rpc::WindowAnimationBehavior::BEHAVIOR_DEFAULT);
  view.vibrancy.set_material(rpc::BrowserVibrancy::MATERIAL_NONE);
  view.vibrancy.set_state(rpc::BrowserVibrancy::STATE_FOLLOWS_WINDOW);
  return view;
}

absl::Status CheckLength(const char* name, std::optional<int> length) {
  if (length.value_or(0) >= 0)
    return absl::OkStatus();
  return absl::InvalidArgumentError(absl::StrCat("The ", name, " is ", *length,
                                                 ": it must not be negative."));
}

// Copies the fields of a message into `view`.
struct Setter {
  void Set(const rpc::WindowTitle& m) { view.title = m.title(); }
  void Set(const rpc::WindowTitleVisibility& m) {
    view.title_visible = m.visible();
  }
  void Set(const rpc::WindowTitlebarVisibility& m) {
    view.titlebar_visible = m.visible();
  }
  void Set(const rpc::WindowButtonVisibility& m) {
    if (m.visible())
      view.hidden_buttons.erase(m.kind());
    else
      view.hidden_buttons.insert(m.kind());
  }
  void Set(const rpc::WindowStyleFlags& m) { view.style = m; }
  void Set(const rpc::BrowserWindowDisplayPolicy& m) {
    view.display_policy = m;
  }
  void Set(const rpc::WindowAnimationBehavior& m) { view.animation = m; }
  void Set(const rpc::ActivationIndependence& m) {
    view.activation_independent = m.enabled();
  }
  void Set(const rpc::BrowserVibrancy& m) { view.vibrancy = m; }

  WindowView& view;
};

}  // namespace

WindowState MemoryDesktop::Window::state() const {
  if (minimized)
    return WindowState::kMinimized;
  if (full_screen)
    return WindowState::kFullScreen;
  return maximized ? WindowState::kMaximized : WindowState::kNormal;
}

MemoryDesktop::MemoryDesktop(rpc::loop::Sequence& sequence,
                             const Display& display)
    : sequence_(sequence), display_(display) {}

int64_t MemoryDesktop::Open() {
  const int64_t id = ++last_id_;
  Window& window = windows_[id];
  window.normal_bounds = FirstBounds(id, display_.work_area);
  window.view = FirstView(id);
  MakeActive(id);
  return id;
}

absl::StatusOr<WindowView> MemoryDesktop::Inspect(int64_t id) const {
  auto it = windows_.find(id);
  if (it == windows_.end())
    return NoWindow(id);
  return View(it->second);
}

void MemoryDesktop::Change(int64_t id, WindowChange change, Completion done) {
  const absl::Status status = ChangeNow(id, change);
  if (status.ok())
    TellChanged(id);
  sequence_.Post([status, done = std::move(done)]() mutable { done(status); });
}

WindowView MemoryDesktop::View(const Window& window) const {
  WindowView view = window.view;
  view.state = window.state();
  view.visible = window.visible();
  view.active = view.id == active_;
  view.page_has_keyboard = view.active && page_has_keyboard_;
  if (window.full_screen)
    view.bounds = display_.bounds;
  else
    view.bounds = window.maximized ? display_.work_area : window.normal_bounds;
  return view;
}

absl::Status MemoryDesktop::ChangeNow(int64_t id, const WindowChange& change) {
  auto it = windows_.find(id);
  if (it == windows_.end())
    return NoWindow(id);
  return std::visit(
      [&](const auto& change) { return Apply(it->second, change); }, change);
}

absl::Status MemoryDesktop::Apply(Window& window, WindowAction action) {
  switch (action) {
    case WindowAction::kShow:
      window.shown = true;
      return Activate(window);
    case WindowAction::kHide:
      window.shown = false;
      PassActivationOn(window.view.id);
      break;
    case WindowAction::kActivate:
      return Activate(window);
    case WindowAction::kDeactivate:
      PassActivationOn(window.view.id);
      break;
    case WindowAction::kFocus: {
      absl::Status activated = Activate(window);
      page_has_keyboard_ |= activated.ok();
      return activated;
    }
    case WindowAction::kMaximize:
      window.maximized = true;
      window.full_screen = false;
      BringBack(window);
      break;
    case WindowAction::kMinimize:
      window.minimized = true;
      PassActivationOn(window.view.id);
      break;
    case WindowAction::kRestore:
      Restore(window);
      break;
    case WindowAction::kEnterFullScreen:
      window.full_screen = true;
      BringBack(window);
      break;
    case WindowAction::kExitFullScreen:
      if (!window.minimized)
        window.full_screen = false;
      break;
    case WindowAction::kCenter:
      Center(window);
      break;
  }
  return absl::OkStatus();
}

// Changes the normal bounds, which a window that is maximized, minimized or
// full screen gets when it becomes normal again.
absl::Status MemoryDesktop::Apply(Window& window, const BoundsChange& change) {
  if (absl::Status width = CheckLength("width", change.width); !width.ok())
    return width;
  if (absl::Status height = CheckLength("height", change.height); !height.ok())
    return height;
  Rect& bounds = window.normal_bounds;
  bounds.x = change.x.value_or(bounds.x);
  bounds.y = change.y.value_or(bounds.y);
  bounds.width = std::max(change.width.value_or(bounds.width), kMinimumWidth);
  bounds.height =
      std::max(change.height.value_or(bounds.height), kMinimumHeight);
  return absl::OkStatus();
}

absl::Status MemoryDesktop::Apply(Window& window, const Close& close) {
  sequence_.Post([this, last = View(window), reason = close.reason] {
    if (observer())
      observer()->OnWindowGone(last, reason);
  });
  const int64_t id = window.view.id;
  PassActivationOn(id);
  std::erase(stacking_, id);
  windows_.erase(id);
  return absl::OkStatus();
}

template <typename Message>
absl::Status MemoryDesktop::Apply(Window& window, const Message& message) {
  Setter{window.view}.Set(message);
  return absl::OkStatus();
}

absl::Status MemoryDesktop::Activate(Window& window) {
  if (!window.shown) {
    return absl::FailedPreconditionError(
        absl::StrCat("Window ", window.view.id, " is hidden: show it first."));
  }
  window.minimized = false;
  MakeActive(window.view.id);
  return absl::OkStatus();
}

void MemoryDesktop::Restore(Window& window) {
  if (window.minimized)
    BringBack(window);
  else if (window.full_screen)
    window.full_screen = false;
  else
    window.maximized = false;
}

// max(): the title bar of a window larger than the work area stays on the
// screen.
void MemoryDesktop::Center(Window& window) {
  const Rect& area = display_.work_area;
  Rect& bounds = window.normal_bounds;
  bounds.x = area.x + std::max(0, (area.width - bounds.width) / 2);
  bounds.y = area.y + std::max(0, (area.height - bounds.height) / 2);
}

void MemoryDesktop::MakeActive(int64_t id) {
  std::erase(stacking_, id);
  stacking_.insert(stacking_.begin(), id);
  if (active_ == id)
    return;
  TellChanged(active_);
  TellChanged(id);
  active_ = id;
  page_has_keyboard_ = false;
}

void MemoryDesktop::BringBack(Window& window) {
  if (!window.minimized)
    return;
  window.minimized = false;
  if (window.shown)
    MakeActive(window.view.id);
}

void MemoryDesktop::PassActivationOn(int64_t id) {
  if (active_ != id)
    return;
  active_ = 0;
  page_has_keyboard_ = false;
  for (int64_t next : stacking_) {
    const Window& window = windows_.at(next);
    if (next != id && window.visible() && !window.view.activation_independent)
      return MakeActive(next);
  }
}

void MemoryDesktop::TellChanged(int64_t id) {
  sequence_.Post([this, id] {
    if (observer() && windows_.contains(id))
      observer()->OnWindowChanged(id);
  });
}

}  // namespace window_host
