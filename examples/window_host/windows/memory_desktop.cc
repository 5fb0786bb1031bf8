#include "examples/window_host/windows/memory_desktop.h"

#include <utility>

#include "examples/window_host/windows/window_properties.h"

namespace window_host {
MemoryDesktop::MemoryDesktop(rpc::loop::Sequence& sequence,
                             const Display& display)
    : sequence_(sequence), display_(display) {}

int64_t MemoryDesktop::Open() {
  return *OpenNow({});
}

void MemoryDesktop::Open(NewWindow window, Opened done) {
  sequence_.Post(
      [id = OpenNow(window), done = std::move(done)]() mutable { done(id); });
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
  view.state = window.form.state();
  view.visible = window.form.visible();
  view.active = view.id == active_;
  view.page_has_keyboard = view.active && page_has_keyboard_;
  const WindowForm& form = window.form;
  if (form.full_screen)
    view.bounds = display_.bounds;
  else
    view.bounds = form.maximized ? display_.work_area : form.normal_bounds;
  return view;
}

absl::StatusOr<int64_t> MemoryDesktop::OpenNow(const NewWindow& new_window) {
  WindowForm form;
  form.normal_bounds = FirstBounds(last_id_ + 1, display_.work_area);
  if (absl::Status fault = ApplyBounds(new_window.bounds, form); !fault.ok())
    return fault;
  const int64_t id = ++last_id_;
  Window& window = windows_[id];
  window.form = form;
  window.view = FirstView(id);
  if (!new_window.url.empty())
    window.view.title = new_window.url;
  // Before MakeActive(), which tells that the window has changed.
  WindowView first = View(window);
  first.active = true;
  sequence_.Post([this, first = std::move(first)] {
    if (observer())
      observer()->OnWindowOpened(first);
  });
  MakeActive(id);
  return id;
}

absl::Status MemoryDesktop::ChangeNow(int64_t id, const WindowChange& change) {
  auto it = windows_.find(id);
  if (it == windows_.end())
    return NoWindow(id);
  return std::visit(
      [&](const auto& change) { return Apply(it->second, change); }, change);
}

absl::Status MemoryDesktop::Apply(Window& window, WindowAction action) {
  WindowForm& form = window.form;
  const int64_t id = window.view.id;
  const absl::StatusOr<ActivationChange> activation =
      ApplyAction(action, id, form);
  if (!activation.ok())
    return activation.status();
  if (action == WindowAction::kCenter)
    form.normal_bounds = Centered(form.normal_bounds, display_.work_area);
  if (*activation == ActivationChange::kTake)
    MakeActive(id);
  if (*activation == ActivationChange::kPassOn)
    PassActivationOn(id);
  page_has_keyboard_ |= action == WindowAction::kFocus;
  return absl::OkStatus();
}

absl::Status MemoryDesktop::Apply(Window& window, const BoundsChange& change) {
  return ApplyBounds(change, window.form);
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
  SetProperty(message, window.view);
  return absl::OkStatus();
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

void MemoryDesktop::PassActivationOn(int64_t id) {
  if (active_ != id)
    return;
  active_ = 0;
  page_has_keyboard_ = false;
  for (int64_t next : stacking_) {
    const Window& window = windows_.at(next);
    if (next != id && window.form.visible() &&
        !window.view.activation_independent)
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
