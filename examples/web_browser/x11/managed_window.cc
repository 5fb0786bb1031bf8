#include "examples/web_browser/x11/managed_window.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <utility>
#include <vector>

#include "absl/strings/str_cat.h"
#include "examples/web_browser/x11/atoms.h"
#include "examples/web_browser/x11/monitors.h"
#include "examples/web_browser/x11/properties.h"
#include "examples/web_browser/x11/query.h"
#include "examples/web_browser/x11/size_hints.h"
#include "examples/web_browser/x11/xlib.h"

namespace web_browser::x11 {
namespace {

using std::chrono::milliseconds;

// Who asks, in client messages: a pager, acting for a user. Window managers
// grant that more readily than what a program wants by itself.
constexpr long kSourceIsPager = 2;

// Of _NET_WM_STATE.
constexpr long kRemoveState = 0;
constexpr long kAddState = 1;

// Some window managers minimize when they have nothing else to do.
constexpr milliseconds kGraceOfMinimizing{250};

// _NET_MOVERESIZE_WINDOW: the position is that of the frame's top left corner;
// and which members count.
constexpr long kAllOfBounds = NorthWestGravity | 0xF << 8;

// What X11 can express.
constexpr int kFarthest = std::numeric_limits<int16_t>::max();
constexpr int kFarthestBack = std::numeric_limits<int16_t>::min();

// Where WM_HINTS has what: see 4.1.2.4 of the Inter-Client Communication
// Conventions Manual.
constexpr size_t kFlagsOfHints = 0;
constexpr size_t kInputOfHints = 1;
constexpr size_t kLengthOfHints = 9;

Verdict HoldsIf(bool holds) {
  return holds ? Verdict::kHolds : Verdict::kNotYet;
}

// What `holds` says of what was read of a window that may be gone.
template <typename Read, typename Holds>
Verdict Judge(const std::optional<Read>& read, const Holds& holds) {
  return read ? HoldsIf(holds(*read)) : Verdict::kGone;
}

absl::Status CheckExpressible(int64_t id, const PixelRect& bounds) {
  const auto fits = [](int position) {
    return position >= kFarthestBack && position <= kFarthest;
  };
  if (fits(bounds.x) && fits(bounds.y) && bounds.width <= kFarthest &&
      bounds.height <= kFarthest) {
    return absl::OkStatus();
  }
  return absl::OutOfRangeError(absl::StrCat(
      "Window ", id, " cannot be at ", bounds.x, ",", bounds.y, " with ",
      bounds.width, " x ", bounds.height, " pixels: X11 knows none outside of ",
      kFarthestBack, " to ", kFarthest, "."));
}

}  // namespace

// Shared with the changes that wait, which may outlive the window object.
struct ManagedWindow::State {
  State(Desktop& desktop, WindowId window) : hints(desktop, window) {}

  bool exists = true;
  SizeHints hints;
  // What SetTakesFocus() has said.
  bool takes_focus = true;
};

struct ManagedWindow::Request {
  // "maximize": the window is added.
  std::string_view what;
  absl::AnyInvocable<void()> send;
  absl::AnyInvocable<Verdict()> look;
  // What to say instead of "refused to ..."; optional.
  absl::AnyInvocable<absl::Status()> refusal = nullptr;
  // Runs in any case once it is over, unless the window object is gone.
  absl::AnyInvocable<void(State&)> finally = [](State&) {};
  int passes = 1;
  milliseconds grace{0};
};

ManagedWindow::ManagedWindow(Desktop& desktop, WindowId window, int64_t id)
    : desktop_(desktop),
      window_(window),
      id_(id),
      state_(std::make_shared<State>(desktop, window)) {
  desktop_.Select(window_, StructureNotifyMask | PropertyChangeMask);
}

ManagedWindow::~ManagedWindow() {
  state_->exists = false;
}

absl::Status ManagedWindow::NoWindow() const {
  return absl::NotFoundError(absl::StrCat("No window ", id_, "."));
}

absl::StatusOr<WindowFacts> ManagedWindow::Read() const {
  const auto facts = ReadWindow(desktop_, window_);
  if (!facts) {
    return NoWindow();
  }
  return *facts;
}

void ManagedWindow::Make(Request request, Completion done) {
  request.send();
  const std::string what = absl::StrCat(request.what, " window ", id_);
  desktop_.confirmations().Await(
      {.look =
           [state = state_, look = std::move(request.look)]() mutable {
             return state->exists ? look() : Verdict::kGone;
           },
       .refusal =
           [&desktop = desktop_, what,
            refusal = std::move(request.refusal)]() mutable {
             return refusal ? refusal() : desktop.Refusal(what);
           },
       .timeout = [&desktop = desktop_, what] { return desktop.Timeout(what); },
       .gone = NoWindow(),
       .done =
           [state = state_, finally = std::move(request.finally),
            done = std::move(done)](const absl::Status& status) mutable {
             if (state->exists) {
               finally(*state);
             }
             done(status);
           },
       .passes = request.passes,
       .grace = request.grace});
}

void ManagedWindow::Await(std::string_view what,
                          absl::AnyInvocable<Verdict()> look,
                          Completion done) {
  Make({.what = what, .send = [] {}, .look = std::move(look)}, std::move(done));
}

// It may come with another size than it had when it was hidden, which for one
// that users may not resize is the only one in its hints. The toolkit writes
// them anew as it maps the window; were they put back, the window manager would
// have its former size come back, too, sooner or later.
void ManagedWindow::AwaitShown(Completion done) {
  Make({.what = "show",
        .send = [this] { state_->hints.Lift(); },
        .look =
            [this] {
              return Judge(ReadWindow(desktop_, window_),
                           [](const auto& facts) {
                             return facts.management == Management::kNormal &&
                                    facts.viewable && facts.frame;
                           });
            },
        .finally = [](State& state) { state.hints.Settle(); }},
       std::move(done));
}

void ManagedWindow::AwaitHidden(Completion done) {
  Await(
      "hide",
      [this] {
        return Judge(ReadManagement(desktop_, window_), [](Management now) {
          return now == Management::kWithdrawn;
        });
      },
      std::move(done));
}

void ManagedWindow::Activate(Completion done) {
  Make({.what = "activate",
        .send =
            [this] {
              WriteInputHint(true);
              desktop_.SendToWindowManager(window_,
                                           desktop_.atoms().net_active_window,
                                           {kSourceIsPager});
            },
        .look =
            [this] {
              return Judge(ReadManagement(desktop_, window_),
                           [this](Management now) {
                             // What a window manager that has died has
                             // said of it is still there.
                             return now == Management::kNormal &&
                                    desktop_.ActiveWindow() == window_ &&
                                    desktop_.HasWindowManager();
                           });
            },
        .finally = [this](State& state) { WriteInputHint(state.takes_focus); },
        .passes = kPassesOfActivation},
       std::move(done));
}

void ManagedWindow::Deactivate(WindowId next, Completion done) {
  Make({.what = "deactivate",
        .send =
            [this, next] {
              if (desktop_.ActiveWindow() != window_) {
                return;
              }
              if (next != 0) {
                desktop_.SendToWindowManager(
                    next, desktop_.atoms().net_active_window, {kSourceIsPager});
              } else {
                const WindowId nobody = desktop_.FocusWindow();
                IgnoreError(
                    desktop_.xcb(),
                    xcb_set_input_focus_checked(
                        desktop_.xcb(), XCB_INPUT_FOCUS_POINTER_ROOT,
                        static_cast<xcb_window_t>(nobody), XCB_CURRENT_TIME));
              }
            },
        .look =
            [this] {
              return Judge(ReadManagement(desktop_, window_), [this](auto) {
                return desktop_.ActiveWindow() != window_;
              });
            },
        .passes = kPassesOfActivation},
       std::move(done));
}

void ManagedWindow::SetMaximized(bool maximized, Completion done) {
  const Atoms& atoms = desktop_.atoms();
  SetStates(
      maximized ? "maximize" : "un-maximize", maximized,
      atoms.net_wm_state_maximized_vert, atoms.net_wm_state_maximized_horz,
      [this, maximized] {
        return Judge(
            ReadStates(desktop_, window_), [&](const WindowStates& states) {
              if (!maximized) {
                return !states.maximized_vertically &&
                       !states.maximized_horizontally;
              }
              return states.maximized() && FillsItsMonitor(&Monitor::work_area);
            });
      },
      std::move(done));
}

void ManagedWindow::SetFullScreen(bool full_screen, Completion done) {
  SetStates(
      full_screen ? "show full screen" : "end the full screen of", full_screen,
      desktop_.atoms().net_wm_state_fullscreen, 0,
      [this, full_screen] {
        return Judge(
            ReadStates(desktop_, window_), [&](const WindowStates& states) {
              if (!full_screen) {
                return !states.full_screen;
              }
              return states.full_screen && FillsItsMonitor(&Monitor::bounds);
            });
      },
      std::move(done),
      // Some window managers activate it, too.
      full_screen ? kPassesOfActivation : 1);
}

void ManagedWindow::SetSkipTaskbar(bool skip, Completion done) {
  SetStates(
      skip ? "take out of task bars" : "put into task bars", skip,
      desktop_.atoms().net_wm_state_skip_taskbar, 0,
      [this, skip] {
        return Judge(ReadStates(desktop_, window_),
                     [&](const WindowStates& states) {
                       return states.skip_taskbar == skip;
                     });
      },
      std::move(done));
}

void ManagedWindow::SetStates(std::string_view what,
                              bool set,
                              AtomId first,
                              AtomId second,
                              absl::AnyInvocable<Verdict()> look,
                              Completion done,
                              int passes) {
  Make({.what = what,
        .send =
            [&] {
              state_->hints.Lift();
              desktop_.SendToWindowManager(
                  window_, desktop_.atoms().net_wm_state,
                  {set ? kAddState : kRemoveState, static_cast<long>(first),
                   static_cast<long>(second), kSourceIsPager});
            },
        .look = std::move(look),
        .finally = [](State& state) { state.hints.Settle(); },
        .passes = passes},
       std::move(done));
}

bool ManagedWindow::FillsItsMonitor(PixelRect Monitor::*area) const {
  const auto bounds = ReadOuterBounds(desktop_, window_);
  if (!bounds) {
    return false;
  }
  const std::vector<Monitor> monitors = ReadMonitors(desktop_);
  return MonitorOf(monitors, *bounds).*area == *bounds;
}

void ManagedWindow::Minimize(Completion done) {
  Make({.what = "minimize",
        .send =
            [this] {
              desktop_.SendToWindowManager(
                  window_, desktop_.atoms().wm_change_state, {IconicState});
            },
        .look =
            [this] {
              return Judge(
                  ReadManagement(desktop_, window_),
                  [](Management now) { return now == Management::kMinimized; });
            },
        .grace = kGraceOfMinimizing},
       std::move(done));
}

void ManagedWindow::BringBack(Completion done) {
  Make({.what = "bring back",
        .send =
            [this] {
              IgnoreError(
                  desktop_.xcb(),
                  xcb_map_window_checked(desktop_.xcb(),
                                         static_cast<xcb_window_t>(window_)));
            },
        .look =
            [this] {
              return Judge(ReadManagement(desktop_, window_),
                           [this](Management now) {
                             return now == Management::kNormal &&
                                    IsOnScreen(desktop_, window_);
                           });
            }},
       std::move(done));
}

void ManagedWindow::SetBounds(const PixelRect& bounds, Completion done) {
  if (const absl::Status status = CheckExpressible(id_, bounds); !status.ok()) {
    return desktop_.Finish(std::move(done), status);
  }
  const PixelRect wanted{
      bounds.x, bounds.y, std::max(bounds.width, state_->hints.minimum_width()),
      std::max(bounds.height, state_->hints.minimum_height())};
  TryBounds(wanted, ReadWindow(desktop_, window_).value_or(WindowFacts()),
            /*tries=*/2, std::move(done));
}

// Of a window that only grows, some window managers keep all of it on the
// screen, and move it for that. Then it is moved back, which they allow.
void ManagedWindow::TryBounds(const PixelRect& wanted,
                              const WindowFacts& before,
                              int tries,
                              Completion done) {
  Make({.what = "set the bounds of",
        .send = [&] { SendBounds(wanted, before.frame); },
        .look =
            [this, wanted] {
              return Judge(ReadBounds(desktop_, window_),
                           [&](const PixelRect& now) { return now == wanted; });
            },
        .refusal = [this, before] { return BoundsRefusal(before.bounds); },
        .finally = [](State& state) { state.hints.Settle(); }},
       [this, state = state_, wanted, before, tries,
        done = std::move(done)](const absl::Status& status) mutable {
         if (absl::IsFailedPrecondition(status) && tries > 1 && state->exists) {
           return TryBounds(wanted, before, tries - 1, std::move(done));
         }
         done(status);
       });
}

absl::Status ManagedWindow::BoundsRefusal(const PixelRect& before) const {
  const PixelRect now = ReadBounds(desktop_, window_).value_or(before);
  if (now == before) {
    return desktop_.Refusal(absl::StrCat("set the bounds of window ", id_));
  }
  return absl::FailedPreconditionError(absl::StrCat(
      desktop_.WindowManagerName(), " put window ", id_, " at ", now.x, ",",
      now.y, " with ", now.width, " x ", now.height, " pixels instead."));
}

// Window managers let a window without a frame go where its program moves it,
// also off the screen. For one with a frame only the client message says
// clearly which corner is meant; some keep that on the screen.
void ManagedWindow::SendBounds(const PixelRect& bounds,
                               const std::optional<FrameExtents>& around) {
  state_->hints.Lift();
  const FrameExtents frame = around.value_or(FrameExtents());
  if (frame == FrameExtents()) {
    const std::array<int, 4> values = {bounds.x, bounds.y, bounds.width,
                                       bounds.height};
    return IgnoreError(
        desktop_.xcb(),
        xcb_configure_window_checked(
            desktop_.xcb(), static_cast<xcb_window_t>(window_),
            XCB_CONFIG_WINDOW_X | XCB_CONFIG_WINDOW_Y |
                XCB_CONFIG_WINDOW_WIDTH | XCB_CONFIG_WINDOW_HEIGHT,
            values.data()));
  }
  desktop_.SendToWindowManager(
      window_, desktop_.atoms().net_moveresize_window,
      {kAllOfBounds | kSourceIsPager << 12, bounds.x - frame.left,
       bounds.y - frame.top, bounds.width, bounds.height});
}

void ManagedWindow::SetWorkspace(uint32_t workspace, Completion done) {
  Make({.what = "set the workspace of",
        .send =
            [this, workspace] {
              const AtomId property = desktop_.atoms().net_wm_desktop;
              if (ReadManagement(desktop_, window_) == Management::kWithdrawn) {
                // Read by the window manager when the window is mapped.
                WriteNumbers(desktop_.connection(), window_, property,
                             XA_CARDINAL, {workspace});
                return;
              }
              desktop_.SendToWindowManager(
                  window_, property,
                  {static_cast<long>(workspace), kSourceIsPager});
            },
        .look =
            [this, workspace] {
              return Judge(ReadManagement(desktop_, window_), [&](Management) {
                return ReadWorkspace(desktop_, window_) == workspace;
              });
            }},
       std::move(done));
}

absl::Status ManagedWindow::SetTitle(std::string_view title) {
  return WriteText(desktop_.connection(), window_, desktop_.atoms().net_wm_name,
                   desktop_.atoms().utf8_string, title)
             ? absl::OkStatus()
             : NoWindow();
}

absl::Status ManagedWindow::SetTakesFocus(bool takes_focus) {
  state_->takes_focus = takes_focus;
  return WriteInputHint(takes_focus) ? absl::OkStatus() : NoWindow();
}

bool ManagedWindow::WriteInputHint(bool input) const {
  Connection* const connection = desktop_.connection();
  auto hints = PropertyQuery(connection, window_, XA_WM_HINTS).Numbers();
  if (!hints) {
    return false;
  }
  hints->resize(kLengthOfHints);
  const bool has_hint = ((*hints)[kFlagsOfHints] & InputHint) != 0;
  // Without a hint the window gets the keyboard.
  if (has_hint ? (*hints)[kInputOfHints] == uint32_t{input} : input) {
    return true;
  }
  (*hints)[kFlagsOfHints] |= InputHint;
  (*hints)[kInputOfHints] = uint32_t{input};
  return WriteNumbers(connection, window_, XA_WM_HINTS, XA_WM_HINTS, *hints);
}

void ManagedWindow::SetMinimumSize(int width, int height) {
  state_->hints.SetMinimum(width, height);
}

void ManagedWindow::SetResizable(bool resizable) {
  state_->hints.SetResizable(resizable);
}

void ManagedWindow::OnEvent(const Event& event) {
  state_->hints.OnEvent(event);
}

}  // namespace web_browser::x11
