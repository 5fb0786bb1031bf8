#include "examples/web_browser/desktop/adjustment.h"

#include <array>
#include <cstddef>
#include <memory>
#include <utility>

#include "absl/status/statusor.h"
#include "examples/web_browser/desktop/geometry.h"
namespace web_browser {
namespace {

using rpc::BrowserWindowDisplayPolicy;
using x11::Management;
using x11::WindowFacts;

class Adjustment : public std::enable_shared_from_this<Adjustment> {
 public:
  Adjustment(x11::Desktop& desktop,
             Frame& frame,
             x11::ManagedWindow& window,
             const Target& target,
             window_host::Completion done)
      : desktop_(desktop),
        frame_(frame),
        window_(window),
        target_(target),
        done_(std::move(done)) {}

  // Takes the next step that is necessary; ends where there is none. Only a
  // step changes what `facts` says, and after it they are read anew.
  void Continue(const WindowFacts& facts) {
    while (next_ < kSteps.size()) {
      const Step step = kSteps[next_++];
      if ((this->*step)(facts))
        return;
    }
    done_(absl::OkStatus());
  }

 private:
  // Looks at what is confirmed. True if it has requested a change, after whose
  // confirmation the adjustment continues.
  using Step = bool (Adjustment::*)(const WindowFacts&);

  static bool IsManaged(const WindowFacts& facts) {
    return facts.management != Management::kWithdrawn;
  }

  // Also to become another kind of window, which window managers look at when
  // one is mapped.
  bool Withdraw(const WindowFacts& facts) {
    const bool stays =
        target_.form.shown && frame_.is_utility() == target_.utility;
    if (stays || !IsManaged(facts))
      return false;
    frame_.Unmap();
    window_.AwaitHidden(Then());
    return true;
  }

  bool Map(const WindowFacts& facts) {
    if (!target_.form.shown || IsManaged(facts))
      return false;
    frame_.SetUtility(target_.utility);
    frame_.Map(target_.form.normal_bounds);
    window_.AwaitShown(Then());
    return true;
  }

  bool BringBack(const WindowFacts& facts) {
    if (target_.form.minimized || !IsMinimized(facts))
      return false;
    window_.BringBack(Then());
    return true;
  }

  bool LeaveFullScreen(const WindowFacts& facts) {
    if (!IsManaged(facts) || target_.form.full_screen ||
        !facts.states.full_screen) {
      return false;
    }
    window_.SetFullScreen(false, Then());
    return true;
  }

  bool Maximize(const WindowFacts& facts) {
    // Some window managers say of no full-screen window that it is maximized.
    if (!IsManaged(facts) || facts.states.full_screen ||
        target_.form.maximized == facts.states.maximized()) {
      return false;
    }
    window_.SetMaximized(target_.form.maximized, Then());
    return true;
  }

  bool EnterFullScreen(const WindowFacts& facts) {
    if (!IsManaged(facts) || !target_.form.full_screen ||
        facts.states.full_screen) {
      return false;
    }
    window_.SetFullScreen(true, Then());
    return true;
  }

  bool Place(const WindowFacts& facts) {
    const x11::PixelRect wanted =
        ToPixels(target_.form.normal_bounds, frame_.scale());
    if (!IsManaged(facts) ||
        target_.form.state() != window_host::WindowState::kNormal ||
        facts.bounds == wanted) {
      return false;
    }
    window_.SetBounds(wanted, [self = shared_from_this(), then = Then()](
                                  const absl::Status& status) mutable {
      const bool is_refused =
          status.code() == absl::StatusCode::kFailedPrecondition;
      then(is_refused && !self->target_.exact_bounds ? absl::OkStatus()
                                                     : status);
    });
    return true;
  }

  bool ChooseWorkspace(const WindowFacts& facts) {
    if (!IsManaged(facts) || !facts.workspace)
      return false;
    const uint32_t wanted = WantedWorkspace(*facts.workspace);
    if (*facts.workspace == wanted)
      return false;
    window_.SetWorkspace(wanted, Then());
    return true;
  }

  bool LeaveTaskbar(const WindowFacts& facts) {
    if (!IsManaged(facts) || facts.states.skip_taskbar == target_.utility)
      return false;
    window_.SetSkipTaskbar(target_.utility, Then());
    return true;
  }

  bool Minimize(const WindowFacts& facts) {
    if (!target_.form.minimized || !IsManaged(facts) || IsMinimized(facts))
      return false;
    window_.Minimize(Then());
    return true;
  }

  bool Activate(const WindowFacts& facts) {
    if (!target_.active || !IsManaged(facts))
      return false;
    window_.Activate(Then());
    return true;
  }

  uint32_t WantedWorkspace(uint32_t present) const {
    if (target_.policy == BrowserWindowDisplayPolicy::POLICY_ALL_WORKSPACES)
      return x11::kAllWorkspaces;
    const bool follows =
        target_.active &&
        target_.policy == BrowserWindowDisplayPolicy::POLICY_CURRENT_WORKSPACE;
    return follows || present == x11::kAllWorkspaces
               ? desktop_.CurrentWorkspace()
               : present;
  }

  x11::Completion Then() {
    return [self = shared_from_this()](const absl::Status& status) {
      if (!status.ok())
        return self->done_(status);
      const absl::StatusOr<WindowFacts> facts = self->window_.Read();
      if (!facts.ok())
        return self->done_(facts.status());
      self->Continue(*facts);
    };
  }

  // In this order no step undoes one before it.
  static constexpr std::array<Step, 11> kSteps = {
      &Adjustment::Withdraw,     &Adjustment::Map,
      &Adjustment::BringBack,    &Adjustment::LeaveFullScreen,
      &Adjustment::Maximize,     &Adjustment::EnterFullScreen,
      &Adjustment::Place,        &Adjustment::ChooseWorkspace,
      &Adjustment::LeaveTaskbar, &Adjustment::Minimize,
      &Adjustment::Activate,
  };

  x11::Desktop& desktop_;
  Frame& frame_;
  x11::ManagedWindow& window_;
  const Target target_;
  window_host::Completion done_;
  size_t next_ = 0;
};

}  // namespace

bool IsMinimized(const WindowFacts& facts) {
  return facts.management == Management::kMinimized && facts.states.hidden;
}

void Adjust(x11::Desktop& desktop,
            Frame& frame,
            x11::ManagedWindow& window,
            const WindowFacts& present,
            const Target& target,
            window_host::Completion done) {
  std::make_shared<Adjustment>(desktop, frame, window, target, std::move(done))
      ->Continue(present);
}

}  // namespace web_browser
