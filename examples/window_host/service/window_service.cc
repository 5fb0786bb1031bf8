#include "examples/window_host/service/window_service.h"

#include <functional>
#include <optional>
#include <utility>

#include "absl/strings/str_cat.h"
#include "core/common/rpc/serving/call_context.h"

namespace window_host {
namespace {

using google::protobuf::BoolValue;
using google::protobuf::Empty;
using google::protobuf::StringValue;
using Call = google::protobuf::RpcController;
using Done = google::protobuf::Closure;
using Id = const BrowserId;

absl::Status Missing(const char* field) {
  return absl::InvalidArgumentError(
      absl::StrCat("The field ", field, " is missing."));
}

absl::Status NoSuch(const char* field, int value) {
  return absl::InvalidArgumentError(
      absl::StrCat("There is no ", field, " ", value, "."));
}

// An open proto3 enum may hold any number that a client sends.
absl::Status CheckChoice(const char* field, int value, bool (*is_valid)(int)) {
  if (value == 0)
    return Missing(field);
  return is_valid(value) ? absl::OkStatus() : NoSuch(field, value);
}

// Checks that a request is complete, apart from its browser_id.
template <typename Request>
absl::Status Check(const Request&) {
  return absl::OkStatus();
}

absl::Status Check(const rpc::WindowTitle& request) {
  const size_t size = request.title().size();
  if (size <= kMaxTitleBytes)
    return absl::OkStatus();
  return absl::InvalidArgumentError(
      absl::StrCat("The title has ", size, " bytes; a window takes at most ",
                   kMaxTitleBytes, "."));
}

absl::Status Check(const rpc::WindowBounds& request) {
  return request.has_bounds() ? absl::OkStatus() : Missing("bounds");
}

absl::Status Check(const rpc::WindowButton& request) {
  return CheckChoice("kind", request.kind(), rpc::WindowButton::Kind_IsValid);
}

absl::Status Check(const rpc::WindowButtonVisibility& request) {
  return CheckChoice("kind", request.kind(), rpc::WindowButton::Kind_IsValid);
}

absl::Status Check(const rpc::BrowserWindowDisplayPolicy& request) {
  return CheckChoice("policy", request.policy(),
                     rpc::BrowserWindowDisplayPolicy::Policy_IsValid);
}

absl::Status Check(const rpc::WindowAnimationBehavior& request) {
  return CheckChoice("behavior", request.behavior(),
                     rpc::WindowAnimationBehavior::Behavior_IsValid);
}

absl::Status Check(const rpc::BrowserVibrancy& request) {
  absl::Status material = CheckChoice("material", request.material(),
                                      rpc::BrowserVibrancy::Material_IsValid);
  if (material.ok() && !rpc::BrowserVibrancy::State_IsValid(request.state()))
    return NoSuch("state", request.state());
  return material;
}

// The change of the desktop that a request asks for. A window keeps it, and
// each look at the window copies it: so without the fields that the contract
// does not know, of which a client may send thousands.
template <typename Request>
Request ChangeOf(const Request& request) {
  Request change = request;
  change.DiscardUnknownFields();
  return change;
}

BoundsChange ChangeOf(const rpc::WindowPosition& request) {
  BoundsChange change;
  if (request.has_x())
    change.x = request.x();
  if (request.has_y())
    change.y = request.y();
  return change;
}

BoundsChange ChangeOf(const rpc::WindowSize& request) {
  BoundsChange change;
  if (request.has_width())
    change.width = request.width();
  if (request.has_height())
    change.height = request.height();
  return change;
}

BoundsChange ChangeOf(const rpc::WindowBounds& request) {
  const rpc::Rect& bounds = request.bounds();
  return {bounds.x(), bounds.y(), bounds.width(), bounds.height()};
}

rpc::BrowserVibrancy ChangeOf(const rpc::BrowserVibrancy& request) {
  auto change = ChangeOf<rpc::BrowserVibrancy>(request);
  if (change.state() == rpc::BrowserVibrancy::STATE_UNSPECIFIED)
    change.set_state(rpc::BrowserVibrancy::STATE_FOLLOWS_WINDOW);
  return change;
}

class WindowService final : public rpc::BrowserWindowRpc {
 public:
  WindowService(WindowSystem& windows, Browser& browser)
      : windows_(windows), browser_(browser) {}

  // rpc::BrowserWindowRpc:
  void Show(Call* call, Id* id, Empty*, Done* done) override {
    Change(call, *id, WindowAction::kShow, done);
  }
  void IsVisible(Call* call, Id* id, BoolValue* value, Done* done) override {
    Read(call, *id, value, done, &WindowView::visible);
  }
  void Hide(Call* call, Id* id, Empty*, Done* done) override {
    Change(call, *id, WindowAction::kHide, done);
  }
  void Activate(Call* call, Id* id, Empty*, Done* done) override {
    Change(call, *id, WindowAction::kActivate, done);
  }
  void IsActive(Call* call, Id* id, BoolValue* value, Done* done) override {
    Read(call, *id, value, done, &WindowView::active);
  }
  void Deactivate(Call* call, Id* id, Empty*, Done* done) override {
    Change(call, *id, WindowAction::kDeactivate, done);
  }
  void Focus(Call* call, Id* id, Empty*, Done* done) override {
    Change(call, *id, WindowAction::kFocus, done);
  }
  void Maximize(Call* call, Id* id, Empty*, Done* done) override {
    Change(call, *id, WindowAction::kMaximize, done);
  }
  void IsMaximized(Call* call, Id* id, BoolValue* value, Done* done) override {
    ReadState(call, *id, value, done, WindowState::kMaximized);
  }
  void Minimize(Call* call, Id* id, Empty*, Done* done) override {
    Change(call, *id, WindowAction::kMinimize, done);
  }
  void IsMinimized(Call* call, Id* id, BoolValue* value, Done* done) override {
    ReadState(call, *id, value, done, WindowState::kMinimized);
  }
  void Restore(Call* call, Id* id, Empty*, Done* done) override {
    Change(call, *id, WindowAction::kRestore, done);
  }
  void EnterFullScreen(Call* call, Id* id, Empty*, Done* done) override {
    Change(call, *id, WindowAction::kEnterFullScreen, done);
  }
  void ExitFullScreen(Call* call, Id* id, Empty*, Done* done) override {
    Change(call, *id, WindowAction::kExitFullScreen, done);
  }
  void IsFullScreen(Call* call, Id* id, BoolValue* value, Done* done) override {
    ReadState(call, *id, value, done, WindowState::kFullScreen);
  }
  void Close(Call* call, Id* id, BoolValue* value, Done* done) override {
    browser_.CloseWindow(id->value(), rpc::WINDOW_CLOSE_REASON_CALL,
                         [=](const absl::StatusOr<Decision>& closed) {
                           value->set_value(closed.ok() && closed->allowed);
                           End(call, done, closed.status());
                         });
  }
  void SetPosition(Call* call,
                   const rpc::WindowPosition* position,
                   Empty*,
                   Done* done) override {
    Set(call, *position, done);
  }
  void SetSize(Call* call,
               const rpc::WindowSize* size,
               Empty*,
               Done* done) override {
    Set(call, *size, done);
  }
  void SetBounds(Call* call,
                 const rpc::WindowBounds* bounds,
                 Empty*,
                 Done* done) override {
    Set(call, *bounds, done);
  }
  void GetBounds(Call* call, Id* id, rpc::Rect* rect, Done* done) override {
    Read(call, *id, done, [=](const WindowView& window) {
      rect->set_x(window.bounds.x);
      rect->set_y(window.bounds.y);
      rect->set_width(window.bounds.width);
      rect->set_height(window.bounds.height);
    });
  }
  void CenterWindow(Call* call, Id* id, Empty*, Done* done) override {
    Change(call, *id, WindowAction::kCenter, done);
  }
  void SetTitle(Call* call,
                const rpc::WindowTitle* title,
                Empty*,
                Done* done) override {
    Set(call, *title, done);
  }
  void GetTitle(Call* call, Id* id, StringValue* value, Done* done) override {
    Read(call, *id, value, done, &WindowView::title);
  }
  void SetWindowTitleVisible(Call* call,
                             const rpc::WindowTitleVisibility* visibility,
                             Empty*,
                             Done* done) override {
    Set(call, *visibility, done);
  }
  void IsWindowTitleVisible(Call* call,
                            Id* id,
                            BoolValue* value,
                            Done* done) override {
    Read(call, *id, value, done, &WindowView::title_visible);
  }
  void SetWindowTitlebarVisible(Call* call,
                                const rpc::WindowTitlebarVisibility* visibility,
                                Empty*,
                                Done* done) override {
    Set(call, *visibility, done);
  }
  void IsWindowTitlebarVisible(Call* call,
                               Id* id,
                               BoolValue* value,
                               Done* done) override {
    Read(call, *id, value, done, &WindowView::titlebar_visible);
  }
  void SetWindowButtonVisible(Call* call,
                              const rpc::WindowButtonVisibility* visibility,
                              Empty*,
                              Done* done) override {
    Set(call, *visibility, done);
  }
  void IsWindowButtonVisible(Call* call,
                             const rpc::WindowButton* button,
                             BoolValue* value,
                             Done* done) override {
    if (absl::Status fault = CheckComplete(*button); !fault.ok())
      return End(call, done, fault);
    Read(call, button->browser_id(), value, done,
         [=](const WindowView& window) {
           return !window.hidden_buttons.contains(button->kind());
         });
  }
  void SetWindowStyleFlags(Call* call,
                           const rpc::WindowStyleFlags* style,
                           Empty*,
                           Done* done) override {
    Set(call, *style, done);
  }
  void GetWindowStyleFlags(Call* call,
                           Id* id,
                           rpc::WindowStyleFlags* style,
                           Done* done) override {
    ReadMessage(call, *id, style, done, &WindowView::style);
  }
  void SetWindowDisplayPolicy(Call* call,
                              const rpc::BrowserWindowDisplayPolicy* policy,
                              Empty*,
                              Done* done) override {
    Set(call, *policy, done);
  }
  void GetWindowDisplayPolicy(Call* call,
                              Id* id,
                              rpc::BrowserWindowDisplayPolicy* policy,
                              Done* done) override {
    ReadMessage(call, *id, policy, done, &WindowView::display_policy);
  }
  void SetWindowAnimationBehavior(Call* call,
                                  const rpc::WindowAnimationBehavior* behavior,
                                  Empty*,
                                  Done* done) override {
    Set(call, *behavior, done);
  }
  void SetActivationIndependenceEnabled(
      Call* call,
      const rpc::ActivationIndependence* independence,
      Empty*,
      Done* done) override {
    Set(call, *independence, done);
  }
  void IsActivationIndependenceEnabled(Call* call,
                                       Id* id,
                                       BoolValue* value,
                                       Done* done) override {
    Read(call, *id, value, done, &WindowView::activation_independent);
  }
  void SetVibrancy(Call* call,
                   const rpc::BrowserVibrancy* vibrancy,
                   Empty*,
                   Done* done) override {
    Set(call, *vibrancy, done);
  }

 private:
  static void End(Call* call, Done* done, const absl::Status& status) {
    if (!status.ok())
      rpc::serving::CallContext::Of(call).Fail(status);
    done->Run();
  }

  template <typename Request>
  static absl::Status CheckComplete(const Request& request) {
    absl::Status fault = Check(request);
    return fault.ok() && !request.has_browser_id() ? Missing("browser_id")
                                                   : fault;
  }

  // Ends the call when the change has completed. The arguments of the call live
  // until its closure is run.
  void Change(Call* call, Id& id, WindowChange change, Done* done) {
    windows_.Change(
        id.value(), std::move(change),
        [=](const absl::Status& status) { End(call, done, status); });
  }

  // The same for a request that has fields for what to change.
  template <typename Request>
  void Set(Call* call, const Request& request, Done* done) {
    if (absl::Status fault = CheckComplete(request); !fault.ok())
      return End(call, done, fault);
    Change(call, request.browser_id(), ChangeOf(request), done);
  }

  // Passes the window to `fill`, if there is such a window.
  template <typename Fill>
  void Read(Call* call, Id& id, Done* done, Fill fill) {
    const absl::StatusOr<WindowView> window = windows_.Inspect(id.value());
    if (window.ok())
      fill(*window);
    End(call, done, window.status());
  }

  // Answers with `get` of the window: a function or a member.
  template <typename Value, typename Get>
  void Read(Call* call, Id& id, Value* value, Done* done, Get get) {
    Read(call, id, done, [=](const WindowView& window) {
      value->set_value(std::invoke(get, window));
    });
  }

  void ReadState(Call* call,
                 Id& id,
                 BoolValue* value,
                 Done* done,
                 WindowState state) {
    Read(call, id, value, done,
         [=](const WindowView& window) { return window.state == state; });
  }

  // Answers with the member, a message, in which it sets the browser_id.
  template <typename Message>
  void ReadMessage(Call* call,
                   Id& id,
                   Message* message,
                   Done* done,
                   Message WindowView::*member) {
    Read(call, id, done, [&](const WindowView& window) {
      *message = window.*member;
      *message->mutable_browser_id() = id;
    });
  }

  WindowSystem& windows_;
  Browser& browser_;
};

}  // namespace

std::unique_ptr<rpc::BrowserWindowRpc> MakeWindowService(WindowSystem& windows,
                                                         Browser& browser) {
  return std::make_unique<WindowService>(windows, browser);
}

}  // namespace window_host
