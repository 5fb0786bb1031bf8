#include "examples/window_host/windows/window_properties.h"

#include "absl/strings/str_cat.h"

namespace window_host {

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

void SetProperty(const rpc::WindowTitle& request, WindowView& view) {
  view.title = request.title();
}

void SetProperty(const rpc::WindowTitleVisibility& request, WindowView& view) {
  view.title_visible = request.visible();
}

void SetProperty(const rpc::WindowTitlebarVisibility& request,
                 WindowView& view) {
  view.titlebar_visible = request.visible();
}

void SetProperty(const rpc::WindowButtonVisibility& request, WindowView& view) {
  if (request.visible())
    view.hidden_buttons.erase(request.kind());
  else
    view.hidden_buttons.insert(request.kind());
}

void SetProperty(const rpc::WindowStyleFlags& request, WindowView& view) {
  view.style = request;
}

void SetProperty(const rpc::BrowserWindowDisplayPolicy& request,
                 WindowView& view) {
  view.display_policy = request;
}

void SetProperty(const rpc::WindowAnimationBehavior& request,
                 WindowView& view) {
  view.animation = request;
}

void SetProperty(const rpc::ActivationIndependence& request, WindowView& view) {
  view.activation_independent = request.enabled();
}

void SetProperty(const rpc::BrowserVibrancy& request, WindowView& view) {
  view.vibrancy = request;
}

}  // namespace window_host
