#include "examples/web_browser/desktop/real_desktop.h"

#include <gdk/gdkx.h>
// Behind gdkx.h, whose macros it takes away.
#include "examples/web_browser/x11/xlib.h"

#include <algorithm>
#include <chrono>
#include <utility>
#include <variant>

#include "absl/strings/str_cat.h"
#include "examples/web_browser/desktop/geometry.h"
#include "examples/web_browser/x11/monitors.h"
#include "examples/window_host/windows/window_properties.h"

namespace web_browser {

using window_host::ActivationChange;
using window_host::BoundsChange;
using window_host::NewWindow;
using window_host::NoWindow;
using window_host::Opened;
using window_host::Rect;
using window_host::WindowAction;
using window_host::WindowChange;
using window_host::WindowForm;
using window_host::WindowState;
using window_host::WindowView;

namespace {

// What a window shows that was opened without a page.
constexpr char kFirstPage[] = "about:blank";

}  // namespace

struct RealDesktop::UnderWay {
  void End(const absl::Status& status) {
    if (!done)
      return;
    std::exchange(done, nullptr)(status);
    over();
  }

  int64_t id;
  Completion done;
  x11::ChangeQueue::Done over;
};

class RealDesktop::EventFilter {
 public:
  explicit EventFilter(RealDesktop& desktop) : desktop_(desktop) {
    gdk_window_add_filter(nullptr, &OnEvent, &desktop_);
  }
  EventFilter(const EventFilter&) = delete;
  EventFilter& operator=(const EventFilter&) = delete;
  ~EventFilter() { gdk_window_remove_filter(nullptr, &OnEvent, &desktop_); }

 private:
  static GdkFilterReturn OnEvent(GdkXEvent* event, GdkEvent*, gpointer data) {
    auto& desktop = *static_cast<RealDesktop*>(data);
    const auto& x_event = *static_cast<XEvent*>(event);
    desktop.OnEvent(x_event);
    // The toolkit frees what it has of a window that it hears is gone, which is
    // the window's own to do.
    return desktop.TakeLoss(x_event) ? GDK_FILTER_REMOVE : GDK_FILTER_CONTINUE;
  }

  RealDesktop& desktop_;
};

RealDesktop::RealDesktop(rpc::loop::Sequence& sequence,
                         std::chrono::milliseconds patience)
    : sequence_(sequence),
      display_(gdk_x11_display_get_xdisplay(gdk_display_get_default()),
               sequence,
               patience),
      patience_(patience),
      queue_(sequence),
      filter_(std::make_unique<EventFilter>(*this)),
      monitor_event_(x11::SelectMonitorEvents(display_)),
      monitors_(x11::ReadMonitors(display_)) {
  // Another program may destroy a window at any moment. Until the event that
  // tells of it has come, GTK and what it draws with go on using the window,
  // and the errors that this brings would end the program.
  gdk_x11_display_error_trap_push(gdk_display_get_default());
}

RealDesktop::~RealDesktop() {
  gdk_x11_display_error_trap_pop_ignored(gdk_display_get_default());
}

void RealDesktop::Lose() {
  // Their destruction would use the display.
  static auto* const kept =
      new std::map<int64_t, std::unique_ptr<RealWindow>>();
  order_.clear();
  touched_.clear();
  for (auto& [id, window] : std::exchange(windows_, {})) {
    if (window->is_open() && observer())
      observer()->OnWindowGone(window->properties(),
                               rpc::WINDOW_CLOSE_REASON_SHUTDOWN);
    kept->emplace(id, std::move(window));
  }
  if (const auto under_way = std::exchange(under_way_, nullptr))
    under_way->End(NoWindow(under_way->id));
}

absl::StatusOr<WindowView> RealDesktop::Inspect(int64_t id) const {
  const RealWindow* const window = Find(id);
  if (window == nullptr || !window->is_open())
    return NoWindow(id);
  return window->View();
}

std::vector<int64_t> RealDesktop::stacking() const {
  std::vector<int64_t> managed;
  for (x11::WindowId xid : display_.Stacking()) {
    const RealWindow* const window = FindByXid(xid);
    if (window != nullptr && window->is_open())
      managed.push_back(window->id());
  }
  // Those that the window manager does not know keep their places. One that
  // opens has its own already.
  std::vector<int64_t> stacking = order_;
  std::erase_if(stacking, [this](int64_t id) { return !Find(id)->is_open(); });
  for (int64_t& id : stacking) {
    if (std::find(managed.begin(), managed.end(), id) == managed.end())
      continue;
    id = -id;
  }
  for (int64_t& id : stacking) {
    if (id > 0)
      continue;
    id = managed.back();
    managed.pop_back();
  }
  return stacking;
}

void RealDesktop::Open(NewWindow new_window, Opened done) {
  ++opening_;
  const auto opened = std::make_shared<Opened>(std::move(done));
  const auto opened_id = std::make_shared<int64_t>(0);
  Enqueue(
      0,
      [this, opened_id, new_window = std::move(new_window)](Completion done) {
        --opening_;
        WindowForm form;
        const int64_t id = last_id_ + 1;
        const Rect area = MonitorArea(display_, {}, AreaKind::kWork);
        form.normal_bounds =
            PulledInto(area, window_host::FirstBounds(id, area));
        if (absl::Status fault = ApplyBounds(new_window.bounds, form);
            !fault.ok()) {
          return done(fault);
        }
        if (absl::Status fault =
                CheckExpressible(form.normal_bounds, DisplayScale());
            !fault.ok()) {
          return done(fault);
        }
        last_id_ = *opened_id = id;
        FrameObserver& self = *this;
        windows_[id] = std::make_unique<RealWindow>(id, form, self, display_);
        RealWindow& window = *windows_[id];
        window.frame().page().Load(new_window.url.empty() ? kFirstPage
                                                          : new_window.url);
        AdjustTo(window, form, window.properties(), true,
                 [this, id,
                  done = std::move(done)](const absl::Status& status) mutable {
                   RealWindow* const window = Find(id);
                   if (!status.ok() || window == nullptr) {
                     windows_.erase(id);
                     std::erase(order_, id);
                     return done(status);
                   }
                   AwaitPaint(*window, [this, id, done = std::move(done)](
                                           const absl::Status&) mutable {
                     Announce(id);
                     done(absl::OkStatus());
                   });
                 });
      },
      [opened, opened_id](const absl::Status& status) {
        if (status.ok())
          (*opened)(*opened_id);
        else
          (*opened)(status);
      });
}

// When it has been painted: until then its buttons have no place, and a click
// on them would be lost. One that is not painted in time is open all the same.
void RealDesktop::Announce(int64_t id) {
  RealWindow* const window = Find(id);
  // The display may have been lost meanwhile.
  if (window == nullptr)
    return;
  window->set_open();
  if (observer())
    observer()->OnWindowOpened(window->View());
}

void RealDesktop::Change(int64_t id, WindowChange change, Completion done) {
  Enqueue(
      id,
      [this, id, change = std::move(change),
       requested_at = sequence_.Now()](Completion done) mutable {
        RealWindow* const window = Find(id);
        if (window == nullptr || !window->is_open())
          return done(NoWindow(id));
        // It has waited for as long already: so many that wait would take that
        // time each. A window closes without the window manager.
        if (requested_at < hung_at_) {
          const auto* const close = std::get_if<window_host::Close>(&change);
          if (close == nullptr)
            return done(display_.Timeout(absl::StrCat("change window ", id)));
          Destroy(*window, close->reason);
          return done(absl::OkStatus());
        }
        window->TakeOver();
        std::visit(
            [&](const auto& change) {
              Apply(*window, change, std::move(done));
            },
            change);
      },
      std::move(done));
}

void RealDesktop::Execute(int64_t id, const std::string& command) {
  RealWindow* const window = Find(id);
  if (window == nullptr)
    return;
  if (command == "new_window")
    Open({}, [](const absl::StatusOr<int64_t>&) {});
  else if (command == "close_window")
    OnCloseWanted(id);
  else if (command == "find")
    window->frame().OpenFindBar();
  else
    window->frame().page().Execute(command);
}

void RealDesktop::OpenMenu(int64_t id,
                           int x,
                           int y,
                           const std::vector<std::string>& commands) {
  if (RealWindow* const window = Find(id))
    window->frame().OpenMenu(x, y, commands);
}

void RealDesktop::Enqueue(int64_t id, Begin begin, Completion done) {
  queue_.Add([this, id, begin = std::move(begin),
              done = std::move(done)](x11::ChangeQueue::Done over) mutable {
    const auto under_way = std::make_shared<UnderWay>(
        UnderWay{id, std::move(done), std::move(over)});
    under_way_ = under_way;
    begin([this, under_way](const absl::Status& status) {
      if (under_way_ == under_way)
        under_way_ = nullptr;
      if (status.ok() && Find(under_way->id) != nullptr)
        TellChanged(under_way->id);
      if (absl::IsDeadlineExceeded(status))
        hung_at_ = sequence_.Now();
      under_way->End(status);
      if (!touched_.empty())
        sequence_.Post([this] { OnQuiet(); });
    });
  });
}

void RealDesktop::Apply(RealWindow& window,
                        WindowAction action,
                        Completion done) {
  WindowForm form = window.form();
  const absl::StatusOr<ActivationChange> activation =
      ApplyAction(action, window.id(), form);
  if (!activation.ok())
    return done(activation.status());
  if (action == WindowAction::kCenter) {
    form.normal_bounds =
        Centered(form.normal_bounds,
                 MonitorArea(display_, form.normal_bounds, AreaKind::kWork));
    return PlaceExactly(window, form, std::move(done));
  }
  if (action == WindowAction::kFocus) {
    done = [&window,
            done = std::move(done)](const absl::Status& status) mutable {
      if (status.ok())
        window.frame().FocusPage();
      done(status);
    };
  }
  if (*activation != ActivationChange::kPassOn) {
    return AdjustTo(window, form, window.properties(),
                    *activation == ActivationChange::kTake, std::move(done));
  }
  PassActivationOn(
      window, action == WindowAction::kDeactivate,
      [this, &window, form,
       done = std::move(done)](const absl::Status& status) mutable {
        if (!status.ok())
          return done(status);
        AdjustTo(window, form, window.properties(), false, std::move(done));
      });
}

void RealDesktop::Apply(RealWindow& window,
                        const BoundsChange& change,
                        Completion done) {
  WindowForm form = window.form();
  if (absl::Status fault = ApplyBounds(change, form); !fault.ok())
    return done(fault);
  if (absl::Status fault =
          CheckExpressible(form.normal_bounds, window.frame().scale());
      !fault.ok()) {
    return done(fault);
  }
  PlaceExactly(window, form, std::move(done));
}

void RealDesktop::PlaceExactly(RealWindow& window,
                               const WindowForm& form,
                               Completion done) {
  const Target target = {form, window.properties().display_policy.policy(),
                         window.properties().style.utility(), false, true};
  AdjustTo(window, target, window.properties(), std::move(done));
}

void RealDesktop::Apply(RealWindow& window,
                        const window_host::Close& close,
                        Completion done) {
  PassActivationOn(
      window, false,
      [this, &window, reason = close.reason,
       done = std::move(done)](const absl::Status&) mutable {
        const int64_t id = window.id();
        Destroy(window, reason);
        // The window is gone, whatever the window manager does about it; but
        // then others, too, should see it gone.
        display_.confirmations().Await({
            .look = [] { return x11::Verdict::kHolds; },
            .refusal = [] { return absl::OkStatus(); },
            .timeout =
                [this] {
                  hung_at_ = sequence_.Now();
                  return absl::OkStatus();
                },
            .gone = NoWindow(id),
            .done =
                [done = std::move(done)](const absl::Status&) mutable {
                  done(absl::OkStatus());
                },
        });
      });
}

void RealDesktop::Apply(RealWindow& window,
                        const rpc::WindowTitle& title,
                        Completion done) {
  window.SetTitle(title.title());
  AwaitPaint(window, std::move(done));
}

void RealDesktop::Apply(RealWindow& window,
                        const rpc::WindowStyleFlags& style,
                        Completion done) {
  WindowView properties = window.properties();
  SetProperty(style, properties);
  // One that becomes another kind of window is mapped anew.
  const bool activate =
      style.utility() != window.properties().style.utility() &&
      window.IsActive();
  AdjustTo(
      window, window.form(), properties, activate,
      [this, &window,
       done = std::move(done)](const absl::Status& status) mutable {
        if (!status.ok())
          return done(status);
        window.ShowStyle();
        window.managed().SetResizable(window.properties().style.resizable());
        AwaitPaint(window, std::move(done));
      });
}

void RealDesktop::Apply(RealWindow& window,
                        const rpc::BrowserWindowDisplayPolicy& policy,
                        Completion done) {
  WindowView properties = window.properties();
  SetProperty(policy, properties);
  AdjustTo(window, window.form(), properties, false, std::move(done));
}

void RealDesktop::Apply(RealWindow& window,
                        const rpc::WindowAnimationBehavior& animation,
                        Completion done) {
  if (animation.behavior() != rpc::WindowAnimationBehavior::BEHAVIOR_DEFAULT &&
      animation.behavior() != rpc::WindowAnimationBehavior::BEHAVIOR_NONE) {
    return done(absl::UnimplementedError(
        "X11 has no way to choose how a window is animated: there are only "
        "BEHAVIOR_DEFAULT and BEHAVIOR_NONE."));
  }
  SetProperty(animation, window.properties());
  done(absl::OkStatus());
}

void RealDesktop::Apply(RealWindow& window,
                        const rpc::ActivationIndependence& independence,
                        Completion done) {
  const absl::Status set =
      window.managed().SetTakesFocus(!independence.enabled());
  if (set.ok())
    SetProperty(independence, window.properties());
  done(set);
}

void RealDesktop::Apply(RealWindow& window,
                        const rpc::BrowserVibrancy& vibrancy,
                        Completion done) {
  if (vibrancy.material() != rpc::BrowserVibrancy::MATERIAL_NONE &&
      !gdk_screen_is_composited(gdk_screen_get_default())) {
    return done(absl::FailedPreconditionError(
        "No compositor is running, so nothing behind a window can be seen "
        "through it."));
  }
  SetProperty(vibrancy, window.properties());
  window.ShowStyle();
  AwaitPaint(window, std::move(done));
}

template <typename Message>
void RealDesktop::Apply(RealWindow& window,
                        const Message& message,
                        Completion done) {
  SetProperty(message, window.properties());
  window.ShowStyle();
  AwaitPaint(window, std::move(done));
}

void RealDesktop::AdjustTo(RealWindow& window,
                           const WindowForm& form,
                           const WindowView& properties,
                           bool activate,
                           Completion done) {
  AdjustTo(window,
           {form, properties.display_policy.policy(),
            properties.style.utility(), activate},
           properties, std::move(done));
}

void RealDesktop::AdjustTo(RealWindow& window,
                           const Target& target,
                           const WindowView& properties,
                           Completion done) {
  const absl::StatusOr<x11::WindowFacts> present = window.managed().Read();
  if (!present.ok())
    return done(present.status());
  const Target former = {
      window.form(), window.properties().display_policy.policy(),
      window.properties().style.utility(), window.IsActive(*present)};
  Adjust(
      display_, window.frame(), window.managed(), *present, target,
      [this, &window, target, former, active = present->active_window,
       properties, done = std::move(done)](const absl::Status& status) mutable {
        // After the loss of the display there is no such window any more.
        if (windows_.empty())
          return done(status);
        if (status.ok()) {
          window.Keep(target, properties);
          if (target.active)
            BringToFront(window.id());
          return done(status);
        }
        GoBack(window, former, active, status, std::move(done));
      });
}

void RealDesktop::BringToFront(int64_t id) {
  std::erase(order_, id);
  order_.insert(order_.begin(), id);
}

void RealDesktop::GoBack(RealWindow& window,
                         const Target& former,
                         x11::WindowId active,
                         const absl::Status& failure,
                         Completion done) {
  Completion end = [this, &window, failure,
                    done = std::move(done)](const absl::Status&) mutable {
    if (!windows_.empty())
      window.TakeOver();
    done(failure);
  };
  // One that is gone or hangs cannot bring it back either.
  if (!absl::IsFailedPrecondition(failure))
    return end(failure);
  const absl::StatusOr<x11::WindowFacts> present = window.managed().Read();
  if (!present.ok())
    return end(present.status());
  Adjust(display_, window.frame(), window.managed(), *present, former,
         [this, former, active,
          end = std::move(end)](const absl::Status& status) mutable {
           if (windows_.empty() || former.active)
             return end(status);
           GiveActivationBack(active, std::move(end));
         });
}

void RealDesktop::GiveActivationBack(x11::WindowId former, Completion done) {
  const auto is_back = [this, former] {
    return display_.ActiveWindow() == former;
  };
  // The window manager may have activated the window, and when that goes again
  // it passes the activation on, mostly to the one that had it.
  display_.confirmations().Await({
      .look =
          [is_back] {
            return is_back() ? x11::Verdict::kHolds : x11::Verdict::kNotYet;
          },
      .refusal = [] { return absl::OkStatus(); },
      .timeout = [] { return absl::OkStatus(); },
      .gone = absl::OkStatus(),
      .done =
          [this, former, is_back,
           done = std::move(done)](const absl::Status& status) mutable {
            if (windows_.empty() || is_back())
              return done(status);
            if (RealWindow* const own = FindByXid(former))
              return own->managed().Activate(std::move(done));
            if (RealWindow* const own = FindByXid(display_.ActiveWindow()))
              return own->managed().Deactivate(former, std::move(done));
            done(status);
          },
      .passes = x11::kPassesOfActivation,
  });
}

void RealDesktop::PassActivationOn(RealWindow& window,
                                   bool to_nobody,
                                   Completion then) {
  if (!window.IsActive())
    return then(absl::OkStatus());
  const RealWindow* const next = NextToActivate(window.id());
  if (next == nullptr && !to_nobody && !IsAnotherVisible(window.id()))
    return then(absl::OkStatus());
  window.managed().Deactivate(next == nullptr ? 0 : next->managed().window(),
                              std::move(then));
}

void RealDesktop::AwaitPaint(RealWindow& window, Completion done) {
  if (!window.IsPainted())
    return done(absl::OkStatus());
  struct Wait {
    void End(const absl::Status& status) {
      timer.reset();
      if (done)
        std::exchange(done, nullptr)(status);
    }
    Completion done;
    std::unique_ptr<rpc::loop::Timer> timer;
  };
  const auto wait = std::make_shared<Wait>();
  wait->done = std::move(done);
  wait->timer = sequence_.RunAfter(patience_, [wait, id = window.id()] {
    wait->End(absl::DeadlineExceededError(
        absl::StrCat("Window ", id, " was not painted in time.")));
  });
  window.frame().AwaitPaint([wait] { wait->End(absl::OkStatus()); });
}

RealWindow* RealDesktop::Find(int64_t id) {
  const auto it = windows_.find(id);
  return it == windows_.end() ? nullptr : it->second.get();
}

const RealWindow* RealDesktop::Find(int64_t id) const {
  const auto it = windows_.find(id);
  return it == windows_.end() ? nullptr : it->second.get();
}

RealWindow* RealDesktop::FindByXid(x11::WindowId xid) const {
  for (const auto& [id, window] : windows_) {
    if (window->managed().window() == xid)
      return window.get();
  }
  return nullptr;
}

const RealWindow* RealDesktop::NextToActivate(int64_t id) const {
  for (int64_t next : stacking()) {
    const RealWindow* const window = Find(next);
    if (next != id && window != nullptr &&
        !window->properties().activation_independent &&
        window->PresentForm().visible())
      return window;
  }
  return nullptr;
}

bool RealDesktop::IsAnotherVisible(int64_t id) const {
  return std::any_of(windows_.begin(), windows_.end(), [&](const auto& other) {
    return other.first != id && other.second->PresentForm().visible();
  });
}

void RealDesktop::Destroy(RealWindow& window, rpc::WindowCloseReason reason) {
  const WindowView last = window.View();
  std::erase(order_, last.id);
  touched_.erase(last.id);
  windows_.erase(last.id);
  if (observer())
    observer()->OnWindowGone(last, reason);
}

void RealDesktop::TellChanged(int64_t id) {
  if (observer())
    observer()->OnWindowChanged(id);
}

void RealDesktop::OnEvent(const x11::Event& event) {
  display_.OnEvent(event);
  if (event.type == monitor_event_)
    sequence_.Post([this] { OnMonitors(); });
  for (const auto& [id, window] : windows_) {
    window->managed().OnEvent(event);
    if (event.xany.window == window->managed().window())
      touched_.insert(id);
  }
  if (touched_.empty() || quiet_is_posted_)
    return;
  quiet_is_posted_ = true;
  sequence_.Post([this] {
    quiet_is_posted_ = false;
    OnQuiet();
  });
}

// As a change like any other, since one that is under way uses the window.
bool RealDesktop::TakeLoss(const x11::Event& event) {
  if (event.type != DestroyNotify ||
      event.xdestroywindow.event != event.xdestroywindow.window) {
    return false;
  }
  const RealWindow* const lost = FindByXid(event.xdestroywindow.window);
  if (lost == nullptr)
    return false;
  const int64_t id = lost->id();
  Enqueue(
      id,
      [this, id, event = XEvent(event)](Completion done) mutable {
        RealWindow* const window = Find(id);
        if (window == nullptr)
          return done(NoWindow(id));
        Destroy(*window, rpc::WINDOW_CLOSE_REASON_UNSPECIFIED);
        // Now that the toolkit has let go of it, it may hear of it.
        XPutBackEvent(event.xany.display, &event);
        done(absl::OkStatus());
      },
      [](const absl::Status&) {});
  return true;
}

// While a change is under way, its window is between two states.
void RealDesktop::OnQuiet() {
  if (queue_.size() > 0)
    return;
  for (int64_t id : std::exchange(touched_, {})) {
    RealWindow* const window = Find(id);
    if (window == nullptr)
      continue;
    window->TakeOver();
    window->ShowStyle();
    TellChanged(id);
    // The user has made it normal: now it gets the bounds that were to wait.
    if (window->bounds_wait() && window->form().visible() &&
        window->form().state() == WindowState::kNormal) {
      Amend(id, [](WindowForm&) {});
    }
  }
}

void RealDesktop::Amend(int64_t id, std::function<void(WindowForm&)> amend) {
  Enqueue(
      id,
      [this, id, amend = std::move(amend)](Completion done) {
        RealWindow* const window = Find(id);
        if (window == nullptr)
          return done(NoWindow(id));
        window->TakeOver();
        WindowForm form = window->form();
        amend(form);
        AdjustTo(*window, form, window->properties(), false, std::move(done));
      },
      [](const absl::Status&) {});
}

void RealDesktop::OnMonitors() {
  const std::vector<x11::Monitor> before =
      std::exchange(monitors_, x11::ReadMonitors(display_));
  for (const auto& [id, window] : windows_) {
    const x11::Monitor& monitor = x11::MonitorOf(
        before,
        ToPixels(window->form().normal_bounds, window->frame().scale()));
    const bool is_there = std::any_of(
        monitors_.begin(), monitors_.end(),
        [&](const auto& now) { return now.bounds == monitor.bounds; });
    if (!is_there)
      PullIn(id);
  }
}

void RealDesktop::PullIn(int64_t id) {
  Amend(id, [this](WindowForm& form) {
    const Rect area =
        MonitorArea(display_, form.normal_bounds, AreaKind::kWork);
    form.normal_bounds = PulledInto(area, form.normal_bounds);
  });
}

void RealDesktop::OnCloseWanted(int64_t id) {
  const RealWindow* const window = Find(id);
  if (window != nullptr && window->properties().style.closable() && observer())
    observer()->OnCloseWish(id);
}

void RealDesktop::OnCommandWanted(int64_t id, const std::string& command) {
  if (observer())
    observer()->OnCommandWish(id, command);
}

void RealDesktop::OnMenuWanted(int64_t id, int x, int y) {
  if (observer())
    observer()->OnMenuWish(id, x, y);
}

void RealDesktop::OnActionWanted(int64_t id, WindowAction action) {
  const RealWindow* const window = Find(id);
  if (window == nullptr)
    return;
  // Others the window manager activates by itself.
  if (action == WindowAction::kActivate &&
      (!window->properties().activation_independent || window->IsActive())) {
    return;
  }
  Change(id, action, [](const absl::Status&) {});
}

void RealDesktop::OnPageWanted(const std::string& url) {
  Open({.url = url}, [](const absl::StatusOr<int64_t>&) {});
}

void RealDesktop::OnFrameChanged(int64_t id) {
  RealWindow* const window = Find(id);
  if (window == nullptr)
    return;
  window->ShowPageTitle();
  if (window->is_open())
    TellChanged(id);
}

}  // namespace web_browser
