#include "examples/web_browser/desktop/real_window.h"

#include "absl/status/statusor.h"
#include "absl/strings/str_cat.h"
#include "examples/web_browser/desktop/geometry.h"
#include "examples/web_browser/frame/plain_title.h"
#include "examples/window_host/windows/window_properties.h"

namespace web_browser {

using window_host::Rect;
using window_host::WindowForm;
using window_host::WindowState;
using window_host::WindowView;

namespace {

// How much of a material is opaque.
double Opacity(const rpc::BrowserVibrancy& vibrancy, bool active) {
  double opacity = 1;
  switch (vibrancy.material()) {
    case rpc::BrowserVibrancy::MATERIAL_TITLEBAR:
      opacity = 0.8;
      break;
    case rpc::BrowserVibrancy::MATERIAL_SIDEBAR:
      opacity = 0.7;
      break;
    case rpc::BrowserVibrancy::MATERIAL_MENU:
      opacity = 0.9;
      break;
    case rpc::BrowserVibrancy::MATERIAL_WINDOW:
      opacity = 0.6;
      break;
    default:
      return 1;
  }
  const bool lively =
      vibrancy.state() == rpc::BrowserVibrancy::STATE_ACTIVE ||
      (vibrancy.state() != rpc::BrowserVibrancy::STATE_INACTIVE && active);
  return lively ? opacity : (1 + opacity) / 2;
}

}  // namespace

RealWindow::RealWindow(int64_t id,
                       const WindowForm& form,
                       FrameObserver& observer,
                       x11::Desktop& display)
    : display_(display),
      properties_(window_host::FirstView(id)),
      form_(form),
      frame_(id, observer),
      managed_(display, frame_.xid(), id) {
  form_.shown = false;
  managed_.SetMinimumSize(window_host::kMinimumWidth * frame_.scale(),
                          window_host::kMinimumHeight * frame_.scale());
  ShowTitle(properties_.title);
  ShowStyle();
}

WindowForm RealWindow::PresentForm(const x11::WindowFacts& facts) const {
  WindowForm form = form_;
  if (facts.management == x11::Management::kWithdrawn) {
    // Where it was shown, another program has unmapped it.
    form.shown = form.shown && facts.viewable;
    return form;
  }
  form.shown = true;
  form.minimized = IsMinimized(facts);
  form.full_screen = facts.states.full_screen;
  // Of a full-screen window only we know what it goes back to.
  if (!form.full_screen)
    form.maximized = facts.states.maximized();
  if (form.state() == WindowState::kNormal && !bounds_wait_)
    form.normal_bounds = InDips(facts.bounds, frame_.scale());
  return form;
}

WindowForm RealWindow::PresentForm() const {
  const absl::StatusOr<x11::WindowFacts> facts = managed_.Read();
  return facts.ok() ? PresentForm(*facts) : form_;
}

// Window managers may go on naming a window that is no longer there.
bool RealWindow::IsActive(const x11::WindowFacts& facts) const {
  return facts.active_window == managed_.window() &&
         PresentForm(facts).visible();
}

bool RealWindow::IsActive() const {
  const absl::StatusOr<x11::WindowFacts> facts = managed_.Read();
  return facts.ok() && IsActive(*facts);
}

bool RealWindow::IsPainted() const {
  const absl::StatusOr<x11::WindowFacts> facts = managed_.Read();
  return facts.ok() && facts->viewable && PresentForm(*facts).visible();
}

WindowView RealWindow::View() const {
  const absl::StatusOr<x11::WindowFacts> facts = managed_.Read();
  const WindowForm form = facts.ok() ? PresentForm(*facts) : form_;
  WindowView view = properties_;
  view.state = form.state();
  view.visible = form.visible();
  if (facts.ok()) {
    view.active = IsActive(*facts);
    view.page_has_keyboard = view.active && frame_.page_has_focus();
  }
  if (form.visible() && facts.ok())
    view.bounds = InDips(facts->bounds, frame_.scale());
  else if (form.full_screen)
    view.bounds = MonitorArea(display_, form.normal_bounds, AreaKind::kWhole);
  else if (form.maximized)
    view.bounds = MonitorArea(display_, form.normal_bounds, AreaKind::kWork);
  else
    view.bounds = form.normal_bounds;
  return view;
}

void RealWindow::TakeOver() {
  const absl::StatusOr<x11::WindowFacts> facts = managed_.Read();
  if (!facts.ok())
    return;
  const WindowForm before = form_;
  form_ = PresentForm(*facts);
  const bool was_normal = before.state() == WindowState::kNormal;
  const bool is_normal = form_.state() == WindowState::kNormal;
  // Some window managers change the bounds first and then the state: those
  // bounds were not the normal ones.
  if (was_normal && !is_normal && form_.visible() &&
      InDips(facts->bounds, frame_.scale()) == before.normal_bounds) {
    form_.normal_bounds = earlier_bounds_;
  } else if (before.normal_bounds != form_.normal_bounds) {
    earlier_bounds_ = before.normal_bounds;
  }
  frame_.SetMaximized(form_.maximized);
}

void RealWindow::Keep(const Target& target, const WindowView& properties) {
  form_ = target.form;
  properties_ = properties;
  bounds_wait_ |= target.exact_bounds;
  bounds_wait_ &= !form_.visible() || form_.state() != WindowState::kNormal;
  frame_.SetMaximized(form_.maximized);
}

void RealWindow::SetTitle(const std::string& title) {
  is_titled_by_client_ = true;
  ShowTitle(title);
}

void RealWindow::ShowPageTitle() {
  if (is_titled_by_client_)
    return;
  const std::string title = frame_.page().title();
  ShowTitle(title.empty() ? absl::StrCat("Window ", id()) : title);
}

void RealWindow::ShowTitle(const std::string& title) {
  properties_.title = PlainTitle(title);
  frame_.SetTitle(properties_.title);
}

void RealWindow::ShowStyle() {
  frame_.SetStyle({properties_.title_visible, properties_.titlebar_visible,
                   properties_.hidden_buttons, properties_.style});
  frame_.SetOpacityOfBackground(Opacity(properties_.vibrancy, IsActive()));
}

}  // namespace web_browser
