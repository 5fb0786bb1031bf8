// Browser windows on an X11 display, driven through its window manager.
//
//   RealDesktop desktop(loop, std::chrono::seconds(5));
//   desktop.Open({.url = "https://example.org/"}, ...);
//   desktop.Change(1, WindowAction::kMaximize, [](const absl::Status&) {...});
//
// Changes are made one after the other, all windows' together, and each
// completes when the window manager has confirmed it (x11/confirmations.h).
// Inspect() asks the server at that moment. What users and other programs do to
// a window is taken as it is, and is where later changes begin.
//
// Docs: docs/web-browser.md tells for each method what it does and how exactly.
//
// Ownership: as window_system.h says. GTK must have been initialised, and
// outlives the desktop.
//
// Sequence: that of the constructor, which is the thread of GTK.
//
// Failure: as window_system.h says; moreover OUT_OF_RANGE for bounds that X11
// cannot express, UNIMPLEMENTED for animations that nothing draws,
// FAILED_PRECONDITION for a material without a compositor, UNAVAILABLE without
// a window manager. Where the display is lost see Lose().

#ifndef EXAMPLES_WEB_BROWSER_DESKTOP_REAL_DESKTOP_H_
#define EXAMPLES_WEB_BROWSER_DESKTOP_REAL_DESKTOP_H_

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "core/common/rpc/loop/sequence.h"
#include "examples/web_browser/desktop/adjustment.h"
#include "examples/web_browser/desktop/real_window.h"
#include "examples/web_browser/frame/frame.h"
#include "examples/web_browser/x11/change_queue.h"
#include "examples/web_browser/x11/desktop.h"
#include "examples/web_browser/x11/monitors.h"
#include "examples/window_host/windows/window_form.h"
#include "examples/window_host/windows/window_system.h"

namespace web_browser {

class RealDesktop final : public window_host::WindowSystem,
                          private FrameObserver {
 public:
  // `patience` is how long the window manager may take for a step of a change
  // before it counts as hanging.
  RealDesktop(rpc::loop::Sequence& sequence,
              std::chrono::milliseconds patience);
  RealDesktop(const RealDesktop&) = delete;
  RealDesktop& operator=(const RealDesktop&) = delete;
  ~RealDesktop() override;

  // To be called when the connection to the display is broken: every window is
  // gone, and the observer is told so; changes that wait end with NOT_FOUND,
  // and no further ones are possible. Nothing here uses the display any more.
  void Lose();

  // WindowSystem:
  absl::StatusOr<window_host::WindowView> Inspect(int64_t id) const override;
  std::vector<int64_t> stacking() const override;
  size_t window_count() const override { return windows_.size() + opening_; }
  void Open(window_host::NewWindow window, window_host::Opened done) override;
  void Change(int64_t id,
              window_host::WindowChange change,
              window_host::Completion done) override;
  void Execute(int64_t id, const std::string& command) override;
  void OpenMenu(int64_t id,
                int x,
                int y,
                const std::vector<std::string>& commands) override;

 private:
  using Completion = window_host::Completion;

  // A change that is under way.
  struct UnderWay;
  using Begin = absl::AnyInvocable<void(Completion)>;

  // Has `begin` called when all changes before are over. It must call the
  // completion that it is given. `id` is the window that the change is of.
  void Enqueue(int64_t id, Begin begin, Completion done);

  // From here on the window is one of those that clients know.
  void Announce(int64_t id);

  // Each begins a change of the window.
  void Apply(RealWindow& window,
             window_host::WindowAction action,
             Completion done);
  void Apply(RealWindow& window,
             const window_host::BoundsChange& change,
             Completion done);
  void Apply(RealWindow& window,
             const window_host::Close& close,
             Completion done);
  void Apply(RealWindow& window,
             const rpc::WindowTitle& title,
             Completion done);
  void Apply(RealWindow& window,
             const rpc::WindowStyleFlags& style,
             Completion done);
  void Apply(RealWindow& window,
             const rpc::BrowserWindowDisplayPolicy& policy,
             Completion done);
  void Apply(RealWindow& window,
             const rpc::WindowAnimationBehavior& animation,
             Completion done);
  void Apply(RealWindow& window,
             const rpc::ActivationIndependence& independence,
             Completion done);
  void Apply(RealWindow& window,
             const rpc::BrowserVibrancy& vibrancy,
             Completion done);
  // For those that only change what the header bar shows.
  template <typename Message>
  void Apply(RealWindow& window, const Message& message, Completion done);

  // Brings the window to that form and those properties, and keeps them when
  // that has succeeded. Where the window manager refuses one of the steps, the
  // window goes back to where it was.
  void AdjustTo(RealWindow& window,
                const window_host::WindowForm& form,
                const window_host::WindowView& properties,
                bool activate,
                Completion done);

  void AdjustTo(RealWindow& window,
                const Target& target,
                const window_host::WindowView& properties,
                Completion done);
  // `active` is the window that was active.
  void GoBack(RealWindow& window,
              const Target& former,
              x11::WindowId active,
              const absl::Status& failure,
              Completion done);
  // Waits until `former`, 0 for none, is active again, after another window was
  // there for a moment. Where the window manager does not make it so, it is
  // asked to.
  void GiveActivationBack(x11::WindowId former, Completion done);
  void PlaceExactly(RealWindow& window,
                    const window_host::WindowForm& form,
                    Completion done);

  // Passes the activation on before `then`, if the window has it. Where no
  // other window can take it, nobody gets it if `to_nobody` says so, or if
  // there are windows that the window manager must not choose: independent
  // ones. Otherwise the window manager decides when the window goes.
  void PassActivationOn(RealWindow& window, bool to_nobody, Completion then);

  // Completes when what the frame shows has been painted.
  void AwaitPaint(RealWindow& window, Completion done);

  RealWindow* Find(int64_t id);
  const RealWindow* Find(int64_t id) const;
  RealWindow* FindByXid(x11::WindowId xid) const;
  // The next window that may take the activation from this one; null for none.
  const RealWindow* NextToActivate(int64_t id) const;
  bool IsAnotherVisible(int64_t id) const;

  void BringToFront(int64_t id);
  void Destroy(RealWindow& window, rpc::WindowCloseReason reason);
  void TellChanged(int64_t id);
  void OnEvent(const x11::Event& event);
  // Whether the event says that another program has destroyed a window, which
  // then is gone here, too.
  bool TakeLoss(const x11::Event& event);
  void OnQuiet();
  // A change of the browser's own, of the form that the window has by then. The
  // window manager has the last word: bounds that had to be exact, and that it
  // refuses, would wait again, and be asked for again, for ever.
  void Amend(int64_t id, std::function<void(window_host::WindowForm&)> amend);
  // Monitors may have come or gone: windows of those that have gone are brought
  // to those that are there.
  void OnMonitors();
  void PullIn(int64_t id);

  // FrameObserver:
  void OnCloseWanted(int64_t id) override;
  void OnCommandWanted(int64_t id, const std::string& command) override;
  void OnMenuWanted(int64_t id, int x, int y) override;
  void OnActionWanted(int64_t id, window_host::WindowAction action) override;
  void OnPageWanted(const std::string& url) override;
  void OnFrameChanged(int64_t id) override;

  rpc::loop::Sequence& sequence_;
  // Filters the events of the display; in real_desktop.cc, as it needs GDK.
  class EventFilter;
  x11::Desktop display_;
  const std::chrono::milliseconds patience_;
  x11::ChangeQueue queue_;
  const std::unique_ptr<EventFilter> filter_;
  // The type of the events that tell of monitors.
  const std::optional<int> monitor_event_;
  // As they were last looked at.
  std::vector<x11::Monitor> monitors_;
  std::map<int64_t, std::unique_ptr<RealWindow>> windows_;
  // The frontmost first; hidden windows keep their place.
  std::vector<int64_t> order_;
  int64_t last_id_ = 0;
  size_t opening_ = 0;
  std::shared_ptr<UnderWay> under_way_;
  // When the window manager has last let a change wait for too long.
  rpc::loop::Clock::time_point hung_at_;
  // Windows about which there were events since the last quiet moment.
  std::set<int64_t> touched_;
  bool quiet_is_posted_ = false;
};

}  // namespace web_browser

#endif  // EXAMPLES_WEB_BROWSER_DESKTOP_REAL_DESKTOP_H_
