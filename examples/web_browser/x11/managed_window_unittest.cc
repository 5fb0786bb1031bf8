// Windows on a display of the test's own, under each window manager. What a
// reply says is held against what another connection reads right after it.

#include "examples/web_browser/x11/managed_window.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "examples/web_browser/x11/monitors.h"
#include "examples/web_browser/x11/windows_test_support.h"

namespace web_browser::x11 {
namespace {

class ManagedWindowTest : public WindowsTest {};

WEB_BROWSER_UNDER_EACH_WINDOW_MANAGER(ManagedWindowTest);

TEST_P(ManagedWindowTest, DesktopKnowsItsWindowManager) {
  EXPECT_TRUE(desktop_.HasWindowManager());
  EXPECT_EQ(desktop_.WindowManagerName(), Name());
}

TEST_P(ManagedWindowTest, ShowsWhereItIs) {
  TestWindow& window = Open({100, 80, 400, 300});
  EXPECT_EQ(observer_.WmState(window.id), 1U);
  EXPECT_TRUE(observer_.IsOnScreen(window.id));
  EXPECT_EQ(observer_.BoundsOf(window.id), (PixelRect{100, 80, 400, 300}));
  const WindowFacts facts = window.managed->Read().value();
  EXPECT_EQ(facts.management, Management::kNormal);
  EXPECT_TRUE(facts.viewable);
  EXPECT_EQ(facts.bounds, (PixelRect{100, 80, 400, 300}));
  EXPECT_EQ(facts.frame, FrameExtents());
  EXPECT_EQ(facts.states, WindowStates());
  EXPECT_EQ(facts.workspace, 0U);
}

TEST_P(ManagedWindowTest, Hides) {
  TestWindow& window = Open();
  XWithdrawWindow(connection_.get(), window.id, 0);
  EXPECT_EQ(Do([&](Completion done) {
              window.managed->AwaitHidden(std::move(done));
            }),
            absl::OkStatus());
  EXPECT_EQ(observer_.WmState(window.id), 0U);
  EXPECT_FALSE(observer_.IsOnScreen(window.id));
}

TEST_P(ManagedWindowTest, MaximizesAndComesBack) {
  TestWindow& window = Open();
  EXPECT_EQ(SetMaximized(window, true), absl::OkStatus());
  EXPECT_TRUE(observer_.IsMaximized(window.id));
  EXPECT_EQ(observer_.BoundsOf(window.id), observer_.WorkArea());
  EXPECT_TRUE(window.managed->Read()->states.maximized());
  EXPECT_EQ(SetMaximized(window, false), absl::OkStatus());
  EXPECT_FALSE(observer_.IsMaximized(window.id));
  EXPECT_EQ(observer_.BoundsOf(window.id), (PixelRect{100, 80, 400, 300}));
}

TEST_P(ManagedWindowTest, MaximizeReadRestoreAgreesAThousandTimes) {
  TestWindow& window = Open();
  const PixelRect area = observer_.WorkArea();
  for (int i = 0; i < 1000; ++i) {
    ASSERT_EQ(SetMaximized(window, true), absl::OkStatus()) << i;
    ASSERT_EQ(observer_.BoundsOf(window.id), area) << i;
    ASSERT_TRUE(observer_.IsMaximized(window.id)) << i;
    ASSERT_EQ(SetMaximized(window, false), absl::OkStatus()) << i;
    ASSERT_FALSE(observer_.IsMaximized(window.id)) << i;
    ASSERT_EQ(observer_.BoundsOf(window.id), (PixelRect{100, 80, 400, 300}))
        << i;
  }
}

TEST_P(ManagedWindowTest, FillsTheScreenAndComesBack) {
  TestWindow& window = Open();
  EXPECT_EQ(SetFullScreen(window, true), absl::OkStatus());
  EXPECT_TRUE(observer_.HasState(window.id, "_NET_WM_STATE_FULLSCREEN"));
  EXPECT_EQ(observer_.BoundsOf(window.id), (PixelRect{0, 0, 1280, 800}));
  EXPECT_EQ(SetFullScreen(window, false), absl::OkStatus());
  EXPECT_FALSE(observer_.HasState(window.id, "_NET_WM_STATE_FULLSCREEN"));
  EXPECT_EQ(observer_.BoundsOf(window.id), (PixelRect{100, 80, 400, 300}));
}

TEST_P(ManagedWindowTest, MinimizesAndComesBack) {
  TestWindow& window = Open();
  EXPECT_EQ(Minimize(window), absl::OkStatus());
  EXPECT_EQ(observer_.WmState(window.id), 3U);
  EXPECT_FALSE(observer_.IsOnScreen(window.id));
  EXPECT_EQ(BringBack(window), absl::OkStatus());
  EXPECT_EQ(observer_.WmState(window.id), 1U);
  EXPECT_TRUE(observer_.IsOnScreen(window.id));
}

TEST_P(ManagedWindowTest, BoundsAreExact) {
  TestWindow& window = Open();
  for (const PixelRect& bounds : {
           PixelRect{0, 0, 640, 480},
           PixelRect{-37, -11, 401, 299},
           PixelRect{-150, 750, 200, 100},
           PixelRect{1250, -60, 201, 99},
           PixelRect{20, 30, 30, 20},
           PixelRect{20, 30, 3001, 2001},
           PixelRect{20, 30, 3001, 2001},
           PixelRect{7, 9, 601, 500},
           PixelRect{8, 9, 600, 499},
       }) {
    EXPECT_EQ(SetBounds(window, bounds), absl::OkStatus());
    EXPECT_EQ(observer_.BoundsOf(window.id), bounds);
  }
}

// Both keep a part of each window on the screen, but not the same part.
TEST_P(ManagedWindowTest, BoundsOffTheScreenAreRefusedAndTheTextSaysWhereItIs) {
  TestWindow& window = Open();
  const absl::Status status = SetBounds(window, {1500, 900, 200, 100});
  if (GetParam() == WindowManager::kOpenbox) {
    EXPECT_EQ(status,
              absl::FailedPreconditionError(
                  "Openbox put window 7 at 1260,790 with 200 x 100 pixels "
                  "instead."));
    EXPECT_EQ(observer_.BoundsOf(window.id), (PixelRect{1260, 790, 200, 100}));
  } else {
    EXPECT_EQ(status,
              absl::FailedPreconditionError(
                  "Xfwm4 put window 7 at 1251,771 with 200 x 100 pixels "
                  "instead."));
    EXPECT_EQ(observer_.BoundsOf(window.id), (PixelRect{1251, 771, 200, 100}));
  }
}

TEST_P(ManagedWindowTest, BoundsOfAHiddenWindowAreThoseThatItIsShownWith) {
  TestWindow& window = Make({100, 80, 400, 300});
  EXPECT_EQ(SetBounds(window, {50, 60, 501, 399}), absl::OkStatus());
  EXPECT_EQ(observer_.BoundsOf(window.id), (PixelRect{50, 60, 501, 399}));
  EXPECT_EQ(Show(window), absl::OkStatus());
  EXPECT_EQ(observer_.BoundsOf(window.id), (PixelRect{50, 60, 501, 399}));
}

TEST_P(ManagedWindowTest, SizesBelowTheMinimumBecomeTheMinimum) {
  TestWindow& window = Open();
  window.managed->SetMinimumSize(200, 150);
  EXPECT_EQ(SetBounds(window, {10, 20, 5, 500}), absl::OkStatus());
  EXPECT_EQ(observer_.BoundsOf(window.id), (PixelRect{10, 20, 200, 500}));
}

TEST_P(ManagedWindowTest, BoundsThatX11CannotExpressAreOutOfRange) {
  TestWindow& window = Open();
  const absl::Status status = SetBounds(window, {40000, 0, 100, 100});
  EXPECT_EQ(status,
            absl::OutOfRangeError(
                "Window 7 cannot be at 40000,0 with 100 x 100 pixels: X11 "
                "knows none outside of -32768 to 32767."));
  EXPECT_EQ(SetBounds(window, {0, 0, 100, 40000}).code(),
            absl::StatusCode::kOutOfRange);
  EXPECT_EQ(observer_.BoundsOf(window.id), (PixelRect{100, 80, 400, 300}));
}

TEST_P(ManagedWindowTest, BoundsOfAMaximizedWindowAreRefused) {
  TestWindow& window = Open();
  EXPECT_EQ(SetMaximized(window, true), absl::OkStatus());
  EXPECT_EQ(SetBounds(window, {10, 20, 300, 200}),
            absl::FailedPreconditionError(
                Name() + " refused to set the bounds of window 7."));
  EXPECT_EQ(observer_.BoundsOf(window.id), observer_.WorkArea());
}

TEST_P(ManagedWindowTest, ActivatesOneAfterTheOther) {
  TestWindow& one = Open();
  TestWindow& other = Open({300, 200, 400, 300});
  for (int i = 0; i < 20; ++i) {
    EXPECT_EQ(Activate(one), absl::OkStatus());
    EXPECT_EQ(observer_.ActiveWindow(), one.id);
    EXPECT_EQ(one.managed->Read()->active_window, one.id);
    EXPECT_EQ(Activate(other), absl::OkStatus());
    EXPECT_EQ(observer_.ActiveWindow(), other.id);
    EXPECT_EQ(one.managed->Read()->active_window, other.id);
  }
}

TEST_P(ManagedWindowTest, ActivatesAMinimizedWindow) {
  TestWindow& one = Open();
  Open({300, 200, 400, 300});
  EXPECT_EQ(Minimize(one), absl::OkStatus());
  EXPECT_EQ(Activate(one), absl::OkStatus());
  EXPECT_EQ(observer_.ActiveWindow(), one.id);
  EXPECT_EQ(observer_.WmState(one.id), 1U);
}

TEST_P(ManagedWindowTest, ActivatesAWindowThatTakesNoFocusByItself) {
  TestWindow& one = Open();
  TestWindow& other = Open({300, 200, 400, 300});
  EXPECT_EQ(Activate(other), absl::OkStatus());
  EXPECT_EQ(one.managed->SetTakesFocus(false), absl::OkStatus());
  // Not to it, although it is the only one.
  EXPECT_EQ(Minimize(other), absl::OkStatus());
  EXPECT_NE(observer_.ActiveWindow(), one.id);
  EXPECT_EQ(Activate(one), absl::OkStatus());
  EXPECT_EQ(observer_.ActiveWindow(), one.id);
}

TEST_P(ManagedWindowTest, PassesTheActivationOn) {
  TestWindow& one = Open();
  TestWindow& other = Open({300, 200, 400, 300});
  EXPECT_EQ(Activate(one), absl::OkStatus());
  EXPECT_EQ(Deactivate(one, other.id), absl::OkStatus());
  EXPECT_EQ(observer_.ActiveWindow(), other.id);
}

TEST_P(ManagedWindowTest, DeactivatingOneThatIsNotActiveDoesNothing) {
  TestWindow& one = Open();
  TestWindow& other = Open({300, 200, 400, 300});
  EXPECT_EQ(Activate(one), absl::OkStatus());
  EXPECT_EQ(Deactivate(other, 0), absl::OkStatus());
  EXPECT_EQ(observer_.ActiveWindow(), one.id);
}

// Xfwm4 always has an active window as long as there is one.
TEST_P(ManagedWindowTest, DeactivatesTheOnlyWindowOrSaysWhoRefused) {
  TestWindow& window = Open();
  EXPECT_EQ(Activate(window), absl::OkStatus());
  const absl::Status status = Deactivate(window, 0);
  if (GetParam() == WindowManager::kOpenbox) {
    EXPECT_EQ(status, absl::OkStatus());
  }
  EXPECT_EQ(observer_.ActiveWindow() != window.id, status.ok()) << status;
}

TEST_P(ManagedWindowTest, GoesToAnotherWorkspaceAndToAll) {
  TestWindow& window = Open();
  const auto set = [&](uint32_t workspace) {
    return Do([&](Completion done) {
      window.managed->SetWorkspace(workspace, std::move(done));
    });
  };
  EXPECT_EQ(set(1), absl::OkStatus());
  EXPECT_EQ(observer_.WorkspaceOf(window.id), 1U);
  EXPECT_EQ(set(kAllWorkspaces), absl::OkStatus());
  EXPECT_EQ(observer_.WorkspaceOf(window.id), kAllWorkspaces);
  EXPECT_EQ(window.managed->Read()->workspace, kAllWorkspaces);
  EXPECT_EQ(set(0), absl::OkStatus());
  EXPECT_EQ(observer_.WorkspaceOf(window.id), 0U);
  EXPECT_EQ(set(500),
            absl::FailedPreconditionError(
                Name() + " refused to set the workspace of window 7."));
}

TEST_P(ManagedWindowTest, LeavesTheTaskBar) {
  TestWindow& window = Open();
  for (const bool skip : {true, false}) {
    EXPECT_EQ(Do([&](Completion done) {
                window.managed->SetSkipTaskbar(skip, std::move(done));
              }),
              absl::OkStatus());
    EXPECT_EQ(observer_.HasState(window.id, "_NET_WM_STATE_SKIP_TASKBAR"),
              skip);
  }
}

TEST_P(ManagedWindowTest, HasATitleAtOnce) {
  TestWindow& window = Open();
  EXPECT_EQ(window.managed->SetTitle("Grüße, 世界"), absl::OkStatus());
  EXPECT_EQ(observer_.TitleOf(window.id), "Grüße, 世界");
}

// A toolkit may write the hints at any time.
TEST_P(ManagedWindowTest, OddSizesAreExactAlthoughTheToolkitWantsSteps) {
  TestWindow& window = Open();
  XSizeHints hints{};
  hints.flags = PResizeInc | PBaseSize;
  hints.width_inc = hints.height_inc = 2;
  XSetWMNormalHints(connection_.get(), window.id, &hints);
  EXPECT_TRUE(pump_.RunUntil(
      [&] { return (observer_.HintsOf(window.id).flags & PResizeInc) == 0; }));
  EXPECT_EQ(SetBounds(window, {10, 20, 601, 499}), absl::OkStatus());
  EXPECT_EQ(observer_.BoundsOf(window.id), (PixelRect{10, 20, 601, 499}));
}

TEST_P(ManagedWindowTest, UsersCannotResizeAWindowThatMayNotBe) {
  TestWindow& window = Open();
  window.managed->SetResizable(false);
  const XSizeHints hints = observer_.HintsOf(window.id);
  EXPECT_NE(hints.flags & PMaxSize, 0);
  EXPECT_EQ(hints.min_width, 400);
  EXPECT_EQ(hints.max_width, 400);
  EXPECT_EQ(hints.min_height, 300);
  EXPECT_EQ(hints.max_height, 300);
  window.managed->SetResizable(true);
  EXPECT_EQ(observer_.HintsOf(window.id).flags & PMaxSize, 0);
}

TEST_P(ManagedWindowTest, TheServiceResizesAWindowThatUsersMayNot) {
  TestWindow& window = Open();
  window.managed->SetResizable(false);
  EXPECT_EQ(SetBounds(window, {10, 20, 501, 333}), absl::OkStatus());
  EXPECT_EQ(observer_.BoundsOf(window.id), (PixelRect{10, 20, 501, 333}));
  EXPECT_EQ(observer_.HintsOf(window.id).max_width, 501);
  EXPECT_EQ(SetMaximized(window, true), absl::OkStatus());
  EXPECT_EQ(observer_.BoundsOf(window.id), observer_.WorkArea());
  EXPECT_EQ(SetMaximized(window, false), absl::OkStatus());
  EXPECT_EQ(observer_.BoundsOf(window.id), (PixelRect{10, 20, 501, 333}));
  EXPECT_EQ(observer_.HintsOf(window.id).max_width, 501);
  EXPECT_EQ(observer_.HintsOf(window.id).min_height, 333);
}

TEST_P(ManagedWindowTest, ShowsAWindowThatUsersMayNotResizeWithItsNewSize) {
  TestWindow& window = Make({100, 80, 400, 300});
  window.managed->SetResizable(false);
  // What a toolkit does before it maps a window.
  XResizeWindow(connection_.get(), window.id, 501, 333);
  XSizeHints hints{};
  hints.flags = USPosition | USSize;
  XSetWMNormalHints(connection_.get(), window.id, &hints);
  EXPECT_EQ(Show(window), absl::OkStatus());
  EXPECT_EQ(observer_.BoundsOf(window.id), (PixelRect{100, 80, 501, 333}));
  EXPECT_EQ(observer_.HintsOf(window.id).max_width, 501);
  EXPECT_EQ(observer_.HintsOf(window.id).min_height, 333);
}

TEST_P(ManagedWindowTest, WithoutAWindowManagerItIsRefusedAndSaysSo) {
  TestWindow& window = Open();
  session_.KillWindowManager();
  EXPECT_FALSE(desktop_.HasWindowManager());
  const auto unavailable = [](const std::string& what) {
    return absl::UnavailableError("There is no window manager to " + what +
                                  " window 7.");
  };
  EXPECT_EQ(SetMaximized(window, true), unavailable("maximize"));
  EXPECT_EQ(SetFullScreen(window, true), unavailable("show full screen"));
  EXPECT_EQ(Activate(window), unavailable("activate"));
  // The server itself moves windows.
  EXPECT_EQ(SetBounds(window, {1, 2, 300, 200}), absl::OkStatus());
  EXPECT_EQ(observer_.BoundsOf(window.id), (PixelRect{1, 2, 300, 200}));
}

TEST_P(ManagedWindowTest, WorksAgainWithANewWindowManager) {
  TestWindow& window = Open();
  session_.KillWindowManager();
  EXPECT_FALSE(SetMaximized(window, true).ok());
  session_.StartWindowManager();
  EXPECT_EQ(SetMaximized(window, true), absl::OkStatus());
  EXPECT_TRUE(observer_.IsMaximized(window.id));
  EXPECT_EQ(observer_.BoundsOf(window.id), observer_.WorkArea());
}

TEST_P(ManagedWindowTest, AHungWindowManagerIsADeadline) {
  TestWindow& window = Open();
  session_.StopWindowManager();
  const auto start = loop_.Now();
  EXPECT_EQ(SetMaximized(window, true),
            absl::DeadlineExceededError(
                Name() + " did not answer in time to maximize window 7."));
  EXPECT_GE(loop_.Now() - start, Confirmations::kDeadline);
  EXPECT_FALSE(observer_.IsMaximized(window.id));
  // It comes to itself, does what it was asked for, and what it is asked next.
  session_.ContinueWindowManager();
  EXPECT_EQ(SetMaximized(window, false), absl::OkStatus());
  EXPECT_FALSE(observer_.IsMaximized(window.id));
}

TEST_P(ManagedWindowTest, AWindowThatIsGoneIsNotFound) {
  TestWindow& window = Open();
  XDestroyWindow(connection_.get(), window.id);
  const absl::Status gone = absl::NotFoundError("No window 7.");
  EXPECT_EQ(window.managed->Read().status(), gone);
  EXPECT_EQ(SetMaximized(window, true), gone);
  EXPECT_EQ(SetBounds(window, {1, 2, 300, 200}), gone);
  EXPECT_EQ(Minimize(window), gone);
  EXPECT_EQ(BringBack(window), gone);
  EXPECT_EQ(Activate(window), gone);
  EXPECT_EQ(Deactivate(window, 0), gone);
  EXPECT_EQ(Show(Make({0, 0, 10, 10})), absl::OkStatus());
  EXPECT_EQ(window.managed->SetTitle("late"), gone);
  EXPECT_EQ(window.managed->SetTakesFocus(false), gone);
  window.managed->SetMinimumSize(5, 5);
  window.managed->SetResizable(false);
}

TEST_P(ManagedWindowTest, AWindowThatGoesMeanwhileIsNotFound) {
  TestWindow& window = Open();
  EXPECT_EQ(Do([&](Completion done) {
              window.managed->SetMaximized(true, std::move(done));
              // Another program does it.
              const ConnectionPointer other = Connect(session_);
              XSync(connection_.get(), 0);
              XDestroyWindow(other.get(), window.id);
              XSync(other.get(), 0);
            }),
            absl::NotFoundError("No window 7."));
}

TEST_P(ManagedWindowTest, AnObjectThatGoesMeanwhileCompletesAsNotFound) {
  TestWindow& window = Open();
  EXPECT_EQ(Do([&](Completion done) {
              window.managed->SetMaximized(true, std::move(done));
              window.managed.reset();
            }),
            absl::NotFoundError("No window 7."));
}

TEST_P(ManagedWindowTest, ManyWindowsAtOnceDoNotConfuseEachOther) {
  std::vector<TestWindow*> windows;
  for (int i = 0; i < 4; ++i) {
    windows.push_back(&Open({i * 50, i * 40, 300, 200}));
  }
  int wrong = 0;
  int complete = 0;
  constexpr int kRounds = 100;
  for (int round = 0; round < kRounds; ++round) {
    for (size_t i = 0; i < windows.size(); ++i) {
      const PixelRect bounds{round, 3 * round, 200 + round,
                             150 + static_cast<int>(i)};
      windows[i]->managed->SetBounds(
          bounds, [&, i, bounds](const absl::Status& status) {
            wrong +=
                !status.ok() || observer_.BoundsOf(windows[i]->id) != bounds;
            ++complete;
          });
    }
    ASSERT_TRUE(pump_.RunUntil([&] {
      return complete == static_cast<int>(windows.size()) * (round + 1);
    }));
  }
  EXPECT_EQ(wrong, 0);
}

TEST_P(ManagedWindowTest, TheWorkAreaIsThatOfTheWindowManager) {
  const std::vector<Monitor> monitors = ReadMonitors(desktop_);
  ASSERT_EQ(monitors.size(), 1U);
  EXPECT_EQ(monitors[0].bounds, (PixelRect{0, 0, 1280, 800}));
  EXPECT_EQ(monitors[0].work_area, observer_.WorkArea());
}

TEST_P(ManagedWindowTest, APanelMakesTheWorkAreaSmaller) {
  TestWindow& panel = Make({0, 770, 1280, 30});
  const unsigned long strut[] = {0, 0, 0, 30, 0, 0, 0, 0, 0, 0, 0, 1279};
  XChangeProperty(connection_.get(), panel.id,
                  XInternAtom(connection_.get(), "_NET_WM_STRUT_PARTIAL", 0),
                  XA_CARDINAL, 32, PropModeReplace,
                  reinterpret_cast<const unsigned char*>(strut), 12);
  const Atom dock =
      XInternAtom(connection_.get(), "_NET_WM_WINDOW_TYPE_DOCK", 0);
  XChangeProperty(connection_.get(), panel.id,
                  XInternAtom(connection_.get(), "_NET_WM_WINDOW_TYPE", 0),
                  XA_ATOM, 32, PropModeReplace,
                  reinterpret_cast<const unsigned char*>(&dock), 1);
  EXPECT_EQ(Show(panel), absl::OkStatus());
  EXPECT_TRUE(pump_.RunUntil([&] {
    return ReadMonitors(desktop_)[0].work_area == PixelRect{0, 0, 1280, 770};
  }));
  TestWindow& window = Open();
  EXPECT_EQ(SetMaximized(window, true), absl::OkStatus());
  EXPECT_EQ(observer_.BoundsOf(window.id), (PixelRect{0, 0, 1280, 770}));
}

}  // namespace
}  // namespace web_browser::x11
