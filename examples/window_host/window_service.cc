#include "examples/window_host/window_service.h"

#include "absl/strings/str_cat.h"
#include "core/common/rpc/transport/server_controller.h"

namespace window_host {
namespace {

void End(google::protobuf::RpcController* controller,
         google::protobuf::Closure* done,
         const absl::Status& status) {
  if (!status.ok())
    static_cast<rpc::transport::ServerController*>(controller)->Fail(status);
  done->Run();
}

absl::Status Missing(const char* field) {
  return absl::InvalidArgumentError(
      absl::StrCat("The field ", field, " is missing."));
}

absl::Status NoSuch(const char* field, int value) {
  return absl::InvalidArgumentError(
      absl::StrCat("There is no ", field, " ", value, "."));
}

// Clients may send numbers that the enumeration does not have.
absl::Status CheckChoice(const char* field, int value, bool (*is_valid)(int)) {
  if (value == 0)
    return Missing(field);
  return is_valid(value) ? absl::OkStatus() : NoSuch(field, value);
}

absl::Status CheckButton(int kind) {
  return CheckChoice("kind", kind, rpc::WindowButton::Kind_IsValid);
}

}  // namespace

template <typename Read>
absl::Status WindowService::ReadView(const BrowserId& id, Read read) const {
  absl::StatusOr<WindowView> view = desktop_.Inspect(id.value());
  if (view.ok())
    read(*view);
  return view.status();
}

template <typename Read>
absl::Status WindowService::ReadLook(const BrowserId& id, Read read) const {
  absl::StatusOr<WindowLook*> look = desktop_.Look(id.value());
  if (look.ok())
    read(**look);
  return look.status();
}

template <typename Request, typename Change>
absl::Status WindowService::WithLook(const Request& request,
                                     Change change) const {
  if (!request.has_browser_id())
    return Missing("browser_id");
  return ReadLook(request.browser_id(), change);
}

template <typename Request>
absl::Status WindowService::ChangeBounds(const Request& request,
                                         const BoundsChange& change) {
  if (!request.has_browser_id())
    return Missing("browser_id");
  return desktop_.SetBounds(request.browser_id().value(), change);
}

void WindowService::Show(Controller* controller,
                         const BrowserId* request,
                         Empty*,
                         Closure* done) {
  End(controller, done, desktop_.Show(request->value()));
}

void WindowService::IsVisible(Controller* controller,
                              const BrowserId* request,
                              BoolValue* response,
                              Closure* done) {
  End(controller, done, ReadView(*request, [=](const WindowView& view) {
        response->set_value(view.visible);
      }));
}

void WindowService::Hide(Controller* controller,
                         const BrowserId* request,
                         Empty*,
                         Closure* done) {
  End(controller, done, desktop_.Hide(request->value()));
}

void WindowService::Activate(Controller* controller,
                             const BrowserId* request,
                             Empty*,
                             Closure* done) {
  End(controller, done, desktop_.Activate(request->value()));
}

void WindowService::IsActive(Controller* controller,
                             const BrowserId* request,
                             BoolValue* response,
                             Closure* done) {
  End(controller, done, ReadView(*request, [=](const WindowView& view) {
        response->set_value(view.active);
      }));
}

void WindowService::Deactivate(Controller* controller,
                               const BrowserId* request,
                               Empty*,
                               Closure* done) {
  End(controller, done, desktop_.Deactivate(request->value()));
}

void WindowService::Focus(Controller* controller,
                          const BrowserId* request,
                          Empty*,
                          Closure* done) {
  End(controller, done, desktop_.Focus(request->value()));
}

void WindowService::Maximize(Controller* controller,
                             const BrowserId* request,
                             Empty*,
                             Closure* done) {
  End(controller, done, desktop_.Maximize(request->value()));
}

void WindowService::IsMaximized(Controller* controller,
                                const BrowserId* request,
                                BoolValue* response,
                                Closure* done) {
  End(controller, done, ReadView(*request, [=](const WindowView& view) {
        response->set_value(view.state == WindowState::kMaximized);
      }));
}

void WindowService::Minimize(Controller* controller,
                             const BrowserId* request,
                             Empty*,
                             Closure* done) {
  End(controller, done, desktop_.Minimize(request->value()));
}

void WindowService::IsMinimized(Controller* controller,
                                const BrowserId* request,
                                BoolValue* response,
                                Closure* done) {
  End(controller, done, ReadView(*request, [=](const WindowView& view) {
        response->set_value(view.state == WindowState::kMinimized);
      }));
}

void WindowService::Restore(Controller* controller,
                            const BrowserId* request,
                            Empty*,
                            Closure* done) {
  End(controller, done, desktop_.Restore(request->value()));
}

void WindowService::EnterFullScreen(Controller* controller,
                                    const BrowserId* request,
                                    Empty*,
                                    Closure* done) {
  End(controller, done, desktop_.EnterFullScreen(request->value()));
}

void WindowService::ExitFullScreen(Controller* controller,
                                   const BrowserId* request,
                                   Empty*,
                                   Closure* done) {
  End(controller, done, desktop_.ExitFullScreen(request->value()));
}

void WindowService::IsFullScreen(Controller* controller,
                                 const BrowserId* request,
                                 BoolValue* response,
                                 Closure* done) {
  End(controller, done, ReadView(*request, [=](const WindowView& view) {
        response->set_value(view.state == WindowState::kFullScreen);
      }));
}

void WindowService::Close(Controller* controller,
                          const BrowserId* request,
                          BoolValue* response,
                          Closure* done) {
  browser_.CloseWindow(request->value(), rpc::WINDOW_CLOSE_REASON_CALL,
                       [=](const absl::StatusOr<Decision>& closed) {
                         response->set_value(closed.ok() && closed->allowed);
                         End(controller, done, closed.status());
                       });
}

void WindowService::SetPosition(Controller* controller,
                                const rpc::WindowPosition* request,
                                Empty*,
                                Closure* done) {
  BoundsChange change;
  if (request->has_x())
    change.x = request->x();
  if (request->has_y())
    change.y = request->y();
  End(controller, done, ChangeBounds(*request, change));
}

void WindowService::SetSize(Controller* controller,
                            const rpc::WindowSize* request,
                            Empty*,
                            Closure* done) {
  BoundsChange change;
  if (request->has_width())
    change.width = request->width();
  if (request->has_height())
    change.height = request->height();
  End(controller, done, ChangeBounds(*request, change));
}

void WindowService::SetBounds(Controller* controller,
                              const rpc::WindowBounds* request,
                              Empty*,
                              Closure* done) {
  if (!request->has_bounds())
    return End(controller, done, Missing("bounds"));
  const rpc::Rect& bounds = request->bounds();
  End(controller, done,
      ChangeBounds(*request,
                   {bounds.x(), bounds.y(), bounds.width(), bounds.height()}));
}

void WindowService::GetBounds(Controller* controller,
                              const BrowserId* request,
                              rpc::Rect* response,
                              Closure* done) {
  End(controller, done, ReadView(*request, [=](const WindowView& view) {
        response->set_x(view.bounds.x);
        response->set_y(view.bounds.y);
        response->set_width(view.bounds.width);
        response->set_height(view.bounds.height);
      }));
}

void WindowService::CenterWindow(Controller* controller,
                                 const BrowserId* request,
                                 Empty*,
                                 Closure* done) {
  End(controller, done, desktop_.Center(request->value()));
}

void WindowService::SetTitle(Controller* controller,
                             const rpc::WindowTitle* request,
                             Empty*,
                             Closure* done) {
  End(controller, done, WithLook(*request, [=](WindowLook& look) {
        look.title = request->title();
      }));
}

void WindowService::GetTitle(Controller* controller,
                             const BrowserId* request,
                             StringValue* response,
                             Closure* done) {
  End(controller, done, ReadLook(*request, [=](const WindowLook& look) {
        response->set_value(look.title);
      }));
}

void WindowService::SetWindowTitleVisible(
    Controller* controller,
    const rpc::WindowTitleVisibility* request,
    Empty*,
    Closure* done) {
  End(controller, done, WithLook(*request, [=](WindowLook& look) {
        look.title_visible = request->visible();
      }));
}

void WindowService::IsWindowTitleVisible(Controller* controller,
                                         const BrowserId* request,
                                         BoolValue* response,
                                         Closure* done) {
  End(controller, done, ReadLook(*request, [=](const WindowLook& look) {
        response->set_value(look.title_visible);
      }));
}

void WindowService::SetWindowTitlebarVisible(
    Controller* controller,
    const rpc::WindowTitlebarVisibility* request,
    Empty*,
    Closure* done) {
  End(controller, done, WithLook(*request, [=](WindowLook& look) {
        look.titlebar_visible = request->visible();
      }));
}

void WindowService::IsWindowTitlebarVisible(Controller* controller,
                                            const BrowserId* request,
                                            BoolValue* response,
                                            Closure* done) {
  End(controller, done, ReadLook(*request, [=](const WindowLook& look) {
        response->set_value(look.titlebar_visible);
      }));
}

void WindowService::SetWindowButtonVisible(
    Controller* controller,
    const rpc::WindowButtonVisibility* request,
    Empty*,
    Closure* done) {
  if (absl::Status kind = CheckButton(request->kind()); !kind.ok())
    return End(controller, done, kind);
  End(controller, done, WithLook(*request, [=](WindowLook& look) {
        if (request->visible())
          look.hidden_buttons.erase(request->kind());
        else
          look.hidden_buttons.insert(request->kind());
      }));
}

void WindowService::IsWindowButtonVisible(Controller* controller,
                                          const rpc::WindowButton* request,
                                          BoolValue* response,
                                          Closure* done) {
  if (absl::Status kind = CheckButton(request->kind()); !kind.ok())
    return End(controller, done, kind);
  End(controller, done, WithLook(*request, [=](WindowLook& look) {
        response->set_value(!look.hidden_buttons.contains(request->kind()));
      }));
}

void WindowService::SetWindowStyleFlags(Controller* controller,
                                        const rpc::WindowStyleFlags* request,
                                        Empty*,
                                        Closure* done) {
  End(controller, done,
      WithLook(*request, [=](WindowLook& look) { look.style = *request; }));
}

void WindowService::GetWindowStyleFlags(Controller* controller,
                                        const BrowserId* request,
                                        rpc::WindowStyleFlags* response,
                                        Closure* done) {
  End(controller, done, ReadLook(*request, [=](const WindowLook& look) {
        *response = look.style;
        *response->mutable_browser_id() = *request;
      }));
}

void WindowService::SetWindowDisplayPolicy(
    Controller* controller,
    const rpc::BrowserWindowDisplayPolicy* request,
    Empty*,
    Closure* done) {
  absl::Status policy =
      CheckChoice("policy", request->policy(),
                  rpc::BrowserWindowDisplayPolicy::Policy_IsValid);
  if (!policy.ok())
    return End(controller, done, policy);
  End(controller, done, WithLook(*request, [=](WindowLook& look) {
        look.display_policy = *request;
      }));
}

void WindowService::GetWindowDisplayPolicy(
    Controller* controller,
    const BrowserId* request,
    rpc::BrowserWindowDisplayPolicy* response,
    Closure* done) {
  End(controller, done, ReadLook(*request, [=](const WindowLook& look) {
        *response = look.display_policy;
        *response->mutable_browser_id() = *request;
      }));
}

void WindowService::SetWindowAnimationBehavior(
    Controller* controller,
    const rpc::WindowAnimationBehavior* request,
    Empty*,
    Closure* done) {
  absl::Status behavior =
      CheckChoice("behavior", request->behavior(),
                  rpc::WindowAnimationBehavior::Behavior_IsValid);
  if (!behavior.ok())
    return End(controller, done, behavior);
  End(controller, done,
      WithLook(*request, [=](WindowLook& look) { look.animation = *request; }));
}

void WindowService::SetActivationIndependenceEnabled(
    Controller* controller,
    const rpc::ActivationIndependence* request,
    Empty*,
    Closure* done) {
  End(controller, done, WithLook(*request, [=](WindowLook& look) {
        look.activation_independent = request->enabled();
      }));
}

void WindowService::IsActivationIndependenceEnabled(Controller* controller,
                                                    const BrowserId* request,
                                                    BoolValue* response,
                                                    Closure* done) {
  End(controller, done, ReadLook(*request, [=](const WindowLook& look) {
        response->set_value(look.activation_independent);
      }));
}

void WindowService::SetVibrancy(Controller* controller,
                                const rpc::BrowserVibrancy* request,
                                Empty*,
                                Closure* done) {
  absl::Status material = CheckChoice("material", request->material(),
                                      rpc::BrowserVibrancy::Material_IsValid);
  if (!material.ok())
    return End(controller, done, material);
  if (!rpc::BrowserVibrancy::State_IsValid(request->state()))
    return End(controller, done, NoSuch("state", request->state()));
  End(controller, done, WithLook(*request, [=](WindowLook& look) {
        look.vibrancy = *request;
        if (request->state() == rpc::BrowserVibrancy::STATE_UNSPECIFIED)
          look.vibrancy.set_state(rpc::BrowserVibrancy::STATE_FOLLOWS_WINDOW);
      }));
}

}  // namespace window_host
