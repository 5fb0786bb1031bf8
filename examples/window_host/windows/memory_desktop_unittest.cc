#include "examples/window_host/windows/memory_desktop.h"

#include <cstdint>
#include <functional>
#include <limits>
#include <utility>
#include <vector>

#include "core/common/rpc/testing/manual_sequence.h"
#include "gmock/gmock.h"
#include "gtest/gtest.h"

namespace window_host {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

class MemoryDesktopTest : public ::testing::Test {
 protected:
  WindowView View(int64_t id) {
    absl::StatusOr<WindowView> view = desktop_.Inspect(id);
    EXPECT_TRUE(view.ok()) << view.status();
    return view.value_or(WindowView{});
  }
  WindowState State(int64_t id) { return View(id).state; }
  Rect Bounds(int64_t id) { return View(id).bounds; }
  bool Visible(int64_t id) { return View(id).visible; }

  // The ids of all active windows: the rule is that there is at most one.
  std::vector<int64_t> Active() {
    std::vector<int64_t> active;
    for (int64_t id : desktop_.stacking()) {
      if (View(id).active)
        active.push_back(id);
    }
    return active;
  }

  // Requests the change and runs the sequence. Each change of these tests so
  // checks that it completes once, and later.
  absl::Status Change(int64_t id, WindowChange change) {
    std::vector<absl::Status> completions;
    desktop_.Change(id, std::move(change), [&](const absl::Status& status) {
      completions.push_back(status);
    });
    EXPECT_THAT(completions, IsEmpty());
    sequence_.Run();
    EXPECT_THAT(completions, SizeIs(1));
    return completions.empty() ? absl::UnknownError("") : completions[0];
  }

  absl::Status Do(WindowAction action, int64_t id) {
    return Change(id, action);
  }
  absl::Status SetBounds(int64_t id, const BoundsChange& change) {
    return Change(id, change);
  }
  absl::StatusOr<int64_t> OpenWith(NewWindow window) {
    absl::StatusOr<int64_t> opened = absl::UnknownError("not completed");
    desktop_.Open(std::move(window),
                  [&](const absl::StatusOr<int64_t>& id) { opened = id; });
    sequence_.Run();
    return opened;
  }

  absl::Status CloseWindow(int64_t id) { return Change(id, Close{}); }

  void MakeIndependent(int64_t id) {
    rpc::ActivationIndependence independence;
    independence.set_enabled(true);
    EXPECT_EQ(absl::OkStatus(), Change(id, independence));
  }

  const Display display_ = {};
  rpc::loop::ManualSequence sequence_;
  MemoryDesktop desktop_{sequence_, display_};
};

#define EXPECT_OK(expression) EXPECT_EQ(absl::OkStatus(), (expression))

TEST_F(MemoryDesktopTest, NewWindowIsVisibleNormalActiveAndInFront) {
  EXPECT_EQ(1, desktop_.Open());
  EXPECT_EQ(2, desktop_.Open());
  EXPECT_TRUE(Visible(2));
  EXPECT_EQ(WindowState::kNormal, State(2));
  EXPECT_THAT(Active(), ElementsAre(2));
  EXPECT_THAT(desktop_.stacking(), ElementsAre(2, 1));
  EXPECT_EQ("Window 2", View(2).title);
}

TEST_F(MemoryDesktopTest, NewWindowsDoNotCoverEachOthersTitle) {
  desktop_.Open();
  desktop_.Open();
  EXPECT_LT(Bounds(1).x, Bounds(2).x);
  EXPECT_LT(Bounds(1).y, Bounds(2).y);
}

TEST_F(MemoryDesktopTest, NewWindowsStayWithinTheWorkAreaHoweverManyThereAre) {
  for (int i = 0; i < 20; ++i) {
    const Rect bounds = Bounds(desktop_.Open());
    EXPECT_LE(bounds.y + bounds.height,
              display_.work_area.y + display_.work_area.height);
  }
}

TEST_F(MemoryDesktopTest, NewWindowGetsTheBoundsThatAreNamed) {
  EXPECT_EQ(1, *OpenWith({.bounds = {.x = -5, .width = 1}}));
  const Rect chosen = Bounds(desktop_.Open());
  EXPECT_EQ(-5, Bounds(1).x);
  EXPECT_EQ(kMinimumWidth, Bounds(1).width);
  EXPECT_EQ(display_.work_area.y, Bounds(1).y);
  EXPECT_EQ(chosen.height, Bounds(1).height);
}

TEST_F(MemoryDesktopTest, NewWindowOfANegativeSizeIsRefusedAndTakesNoId) {
  EXPECT_EQ(
      absl::InvalidArgumentError("The width is -1: it must not be negative."),
      OpenWith({.bounds = {.width = -1}}).status());
  EXPECT_EQ(
      absl::InvalidArgumentError("The height is -2: it must not be negative."),
      OpenWith({.bounds = {.height = -2}}).status());
  EXPECT_THAT(desktop_.stacking(), ElementsAre());
  EXPECT_EQ(1, desktop_.Open());
}

TEST_F(MemoryDesktopTest, NewWindowIsTitledWithItsUrl) {
  EXPECT_EQ(1, *OpenWith({.url = "https://example.org/"}));
  EXPECT_EQ(2, *OpenWith({}));
  EXPECT_EQ("https://example.org/", View(1).title);
  EXPECT_EQ("Window 2", View(2).title);
}

TEST_F(MemoryDesktopTest, EveryChangeNamesTheWindowThatItDoesNotFind) {
  desktop_.Open();
  const absl::Status expected = absl::NotFoundError("No window 7.");
  for (int action = 0; action <= static_cast<int>(WindowAction::kCenter);
       ++action) {
    EXPECT_EQ(expected, Do(static_cast<WindowAction>(action), 7));
  }
  EXPECT_EQ(expected, CloseWindow(7));
  EXPECT_EQ(expected, SetBounds(7, {}));
  EXPECT_EQ(expected, Change(7, rpc::WindowTitle()));
  EXPECT_EQ(expected, desktop_.Inspect(7).status());
}

TEST_F(MemoryDesktopTest, ClosedWindowIsGoneAndItsIdIsNotUsedAgain) {
  desktop_.Open();
  EXPECT_OK(CloseWindow(1));
  EXPECT_EQ(absl::NotFoundError("No window 1."), Do(WindowAction::kShow, 1));
  EXPECT_TRUE(desktop_.stacking().empty());
  EXPECT_EQ(2, desktop_.Open());
}

TEST_F(MemoryDesktopTest, HiddenWindowIsNeitherVisibleNorActive) {
  desktop_.Open();
  EXPECT_OK(Do(WindowAction::kHide, 1));
  EXPECT_FALSE(Visible(1));
  EXPECT_THAT(Active(), ElementsAre());
}

TEST_F(MemoryDesktopTest, MinimizedWindowIsNeitherVisibleNorActive) {
  desktop_.Open();
  EXPECT_OK(Do(WindowAction::kMinimize, 1));
  EXPECT_EQ(WindowState::kMinimized, State(1));
  EXPECT_FALSE(Visible(1));
  EXPECT_THAT(Active(), ElementsAre());
}

TEST_F(MemoryDesktopTest, ShowingMakesVisibleAndActive) {
  desktop_.Open();
  desktop_.Open();
  EXPECT_OK(Do(WindowAction::kHide, 1));
  EXPECT_OK(Do(WindowAction::kShow, 1));
  EXPECT_TRUE(Visible(1));
  EXPECT_THAT(Active(), ElementsAre(1));
  EXPECT_THAT(desktop_.stacking(), ElementsAre(1, 2));
}

TEST_F(MemoryDesktopTest, ShowingBringsAMinimizedWindowBackToWhatItWas) {
  desktop_.Open();
  EXPECT_OK(Do(WindowAction::kMaximize, 1));
  EXPECT_OK(Do(WindowAction::kMinimize, 1));
  EXPECT_OK(Do(WindowAction::kShow, 1));
  EXPECT_EQ(WindowState::kMaximized, State(1));
  EXPECT_TRUE(Visible(1));
}

TEST_F(MemoryDesktopTest, WindowThatGoesAwayPassesActivationOnInStackingOrder) {
  const std::vector<std::function<absl::Status(int64_t)>> ways_to_go = {
      [this](int64_t id) { return Do(WindowAction::kHide, id); },
      [this](int64_t id) { return Do(WindowAction::kMinimize, id); },
      [this](int64_t id) { return CloseWindow(id); },
      [this](int64_t id) { return Do(WindowAction::kDeactivate, id); },
  };
  for (const auto& go : ways_to_go) {
    const int64_t back = desktop_.Open();
    const int64_t hidden = desktop_.Open();
    const int64_t minimized = desktop_.Open();
    const int64_t front = desktop_.Open();
    EXPECT_OK(Do(WindowAction::kHide, hidden));
    EXPECT_OK(Do(WindowAction::kMinimize, minimized));
    EXPECT_OK(go(front));
    EXPECT_THAT(Active(), ElementsAre(back));
    EXPECT_EQ(back, desktop_.stacking().front());
  }
}

TEST_F(MemoryDesktopTest, InactiveWindowThatGoesAwayLeavesActivationAlone) {
  desktop_.Open();
  desktop_.Open();
  desktop_.Open();
  EXPECT_OK(Do(WindowAction::kHide, 1));
  EXPECT_OK(Do(WindowAction::kDeactivate, 2));
  EXPECT_OK(CloseWindow(2));
  EXPECT_THAT(Active(), ElementsAre(3));
}

TEST_F(MemoryDesktopTest, OnlyWindowCanBeDeactivated) {
  desktop_.Open();
  EXPECT_OK(Do(WindowAction::kDeactivate, 1));
  EXPECT_THAT(Active(), ElementsAre());
  EXPECT_TRUE(Visible(1));
}

TEST_F(MemoryDesktopTest, ActivatingRaisesAndLeavesOneWindowActive) {
  desktop_.Open();
  desktop_.Open();
  desktop_.Open();
  EXPECT_OK(Do(WindowAction::kActivate, 1));
  EXPECT_THAT(Active(), ElementsAre(1));
  EXPECT_THAT(desktop_.stacking(), ElementsAre(1, 3, 2));
}

TEST_F(MemoryDesktopTest, ActivatingBringsAMinimizedWindowBack) {
  desktop_.Open();
  EXPECT_OK(Do(WindowAction::kMinimize, 1));
  EXPECT_OK(Do(WindowAction::kActivate, 1));
  EXPECT_EQ(WindowState::kNormal, State(1));
  EXPECT_THAT(Active(), ElementsAre(1));
}

TEST_F(MemoryDesktopTest, HiddenWindowCannotBeActivatedOrFocused) {
  desktop_.Open();
  EXPECT_OK(Do(WindowAction::kMinimize, 1));
  EXPECT_OK(Do(WindowAction::kHide, 1));
  const absl::Status expected =
      absl::FailedPreconditionError("Window 1 is hidden: show it first.");
  EXPECT_EQ(expected, Do(WindowAction::kActivate, 1));
  EXPECT_EQ(expected, Do(WindowAction::kFocus, 1));
  EXPECT_EQ(WindowState::kMinimized, State(1));
  EXPECT_THAT(Active(), ElementsAre());
}

TEST_F(MemoryDesktopTest, RefusedFocusGivesNoPageTheKeyboard) {
  desktop_.Open();
  desktop_.Open();
  EXPECT_OK(Do(WindowAction::kHide, 1));
  EXPECT_FALSE(Do(WindowAction::kFocus, 1).ok());
  EXPECT_FALSE(View(2).page_has_keyboard);
}

TEST_F(MemoryDesktopTest, FocusActivatesAndGivesThePageTheKeyboard) {
  desktop_.Open();
  desktop_.Open();
  EXPECT_OK(Do(WindowAction::kFocus, 1));
  EXPECT_THAT(Active(), ElementsAre(1));
  EXPECT_TRUE(View(1).page_has_keyboard);
  EXPECT_FALSE(View(2).page_has_keyboard);
}

TEST_F(MemoryDesktopTest, PageKeepsTheKeyboardWhileItsWindowStaysActive) {
  desktop_.Open();
  EXPECT_OK(Do(WindowAction::kFocus, 1));
  EXPECT_OK(Do(WindowAction::kActivate, 1));
  EXPECT_TRUE(View(1).page_has_keyboard);
}

TEST_F(MemoryDesktopTest, PageLosesTheKeyboardWithTheActivation) {
  desktop_.Open();
  desktop_.Open();
  EXPECT_OK(Do(WindowAction::kFocus, 1));
  EXPECT_OK(Do(WindowAction::kActivate, 2));
  EXPECT_OK(Do(WindowAction::kActivate, 1));
  EXPECT_FALSE(View(1).page_has_keyboard);
  EXPECT_FALSE(View(2).page_has_keyboard);
}

TEST_F(MemoryDesktopTest, PageLosesTheKeyboardWhenNoWindowIsActiveInItsPlace) {
  desktop_.Open();
  EXPECT_OK(Do(WindowAction::kFocus, 1));
  EXPECT_OK(Do(WindowAction::kHide, 1));
  EXPECT_OK(Do(WindowAction::kShow, 1));
  EXPECT_FALSE(View(1).page_has_keyboard);
}

TEST_F(MemoryDesktopTest, IndependentWindowIsNotActivatedInAnothersPlace) {
  desktop_.Open();
  desktop_.Open();
  desktop_.Open();
  MakeIndependent(2);
  EXPECT_OK(Do(WindowAction::kHide, 3));
  EXPECT_THAT(Active(), ElementsAre(1));
  EXPECT_OK(Do(WindowAction::kHide, 1));
  EXPECT_THAT(Active(), ElementsAre());
}

TEST_F(MemoryDesktopTest, IndependentWindowIsActivatedOnRequest) {
  desktop_.Open();
  desktop_.Open();
  MakeIndependent(1);
  EXPECT_OK(Do(WindowAction::kActivate, 1));
  EXPECT_THAT(Active(), ElementsAre(1));
}

TEST_F(MemoryDesktopTest, MaximizedWindowFillsTheWorkArea) {
  desktop_.Open();
  EXPECT_OK(Do(WindowAction::kMaximize, 1));
  EXPECT_EQ(WindowState::kMaximized, State(1));
  EXPECT_EQ(display_.work_area, Bounds(1));
}

TEST_F(MemoryDesktopTest, RestoringAMaximizedWindowBringsItsBoundsBack) {
  desktop_.Open();
  const Rect before = Bounds(1);
  EXPECT_OK(Do(WindowAction::kMaximize, 1));
  EXPECT_OK(Do(WindowAction::kMaximize, 1));
  EXPECT_OK(Do(WindowAction::kRestore, 1));
  EXPECT_EQ(WindowState::kNormal, State(1));
  EXPECT_EQ(before, Bounds(1));
}

TEST_F(MemoryDesktopTest, RestoringANormalWindowDoesNothing) {
  desktop_.Open();
  const Rect before = Bounds(1);
  EXPECT_OK(Do(WindowAction::kRestore, 1));
  EXPECT_EQ(WindowState::kNormal, State(1));
  EXPECT_EQ(before, Bounds(1));
}

TEST_F(MemoryDesktopTest, FullScreenWindowFillsTheDisplay) {
  desktop_.Open();
  EXPECT_OK(Do(WindowAction::kEnterFullScreen, 1));
  EXPECT_EQ(WindowState::kFullScreen, State(1));
  EXPECT_EQ(display_.bounds, Bounds(1));
}

TEST_F(MemoryDesktopTest, LeavingFullScreenReturnsToWhatTheWindowWas) {
  desktop_.Open();
  const Rect before = Bounds(1);
  EXPECT_OK(Do(WindowAction::kEnterFullScreen, 1));
  EXPECT_OK(Do(WindowAction::kExitFullScreen, 1));
  EXPECT_EQ(WindowState::kNormal, State(1));
  EXPECT_EQ(before, Bounds(1));

  EXPECT_OK(Do(WindowAction::kMaximize, 1));
  EXPECT_OK(Do(WindowAction::kEnterFullScreen, 1));
  EXPECT_OK(Do(WindowAction::kExitFullScreen, 1));
  EXPECT_EQ(WindowState::kMaximized, State(1));
}

TEST_F(MemoryDesktopTest, RestoringGoesBackOneStateAtATime) {
  desktop_.Open();
  EXPECT_OK(Do(WindowAction::kMaximize, 1));
  EXPECT_OK(Do(WindowAction::kEnterFullScreen, 1));
  EXPECT_OK(Do(WindowAction::kMinimize, 1));
  EXPECT_OK(Do(WindowAction::kRestore, 1));
  EXPECT_EQ(WindowState::kFullScreen, State(1));
  EXPECT_OK(Do(WindowAction::kRestore, 1));
  EXPECT_EQ(WindowState::kMaximized, State(1));
  EXPECT_OK(Do(WindowAction::kRestore, 1));
  EXPECT_EQ(WindowState::kNormal, State(1));
}

TEST_F(MemoryDesktopTest, MaximizingLeavesFullScreen) {
  desktop_.Open();
  EXPECT_OK(Do(WindowAction::kEnterFullScreen, 1));
  EXPECT_OK(Do(WindowAction::kMaximize, 1));
  EXPECT_EQ(WindowState::kMaximized, State(1));
}

TEST_F(MemoryDesktopTest, ExitingFullScreenDoesNothingToAWindowThatIsNot) {
  desktop_.Open();
  EXPECT_OK(Do(WindowAction::kMaximize, 1));
  EXPECT_OK(Do(WindowAction::kExitFullScreen, 1));
  EXPECT_EQ(WindowState::kMaximized, State(1));

  EXPECT_OK(Do(WindowAction::kEnterFullScreen, 1));
  EXPECT_OK(Do(WindowAction::kMinimize, 1));
  EXPECT_OK(Do(WindowAction::kExitFullScreen, 1));
  EXPECT_OK(Do(WindowAction::kRestore, 1));
  EXPECT_EQ(WindowState::kFullScreen, State(1));
}

TEST_F(MemoryDesktopTest, WindowThatComesBackFromMinimizedIsActivated) {
  const std::vector<std::function<absl::Status(int64_t)>> ways_back = {
      [this](int64_t id) { return Do(WindowAction::kRestore, id); },
      [this](int64_t id) { return Do(WindowAction::kMaximize, id); },
      [this](int64_t id) { return Do(WindowAction::kEnterFullScreen, id); },
  };
  desktop_.Open();
  desktop_.Open();
  for (const auto& come_back : ways_back) {
    EXPECT_OK(Do(WindowAction::kMinimize, 1));
    EXPECT_OK(come_back(1));
    EXPECT_TRUE(Visible(1));
    EXPECT_THAT(Active(), ElementsAre(1));
  }
}

TEST_F(MemoryDesktopTest, HiddenWindowThatComesBackFromMinimizedStaysHidden) {
  desktop_.Open();
  EXPECT_OK(Do(WindowAction::kMinimize, 1));
  EXPECT_OK(Do(WindowAction::kHide, 1));
  EXPECT_OK(Do(WindowAction::kRestore, 1));
  EXPECT_EQ(WindowState::kNormal, State(1));
  EXPECT_FALSE(Visible(1));
  EXPECT_THAT(Active(), ElementsAre());
}

TEST_F(MemoryDesktopTest, ChangingStateOfAVisibleWindowDoesNotActivateIt) {
  desktop_.Open();
  desktop_.Open();
  EXPECT_OK(Do(WindowAction::kMaximize, 1));
  EXPECT_OK(Do(WindowAction::kEnterFullScreen, 1));
  EXPECT_OK(Do(WindowAction::kRestore, 1));
  EXPECT_THAT(Active(), ElementsAre(2));
}

TEST_F(MemoryDesktopTest, MinimizedWindowHasTheBoundsThatItComesBackTo) {
  desktop_.Open();
  const Rect normal = Bounds(1);
  EXPECT_OK(Do(WindowAction::kMinimize, 1));
  EXPECT_EQ(normal, Bounds(1));
  EXPECT_OK(Do(WindowAction::kMaximize, 1));
  EXPECT_OK(Do(WindowAction::kMinimize, 1));
  EXPECT_EQ(display_.work_area, Bounds(1));
}

TEST_F(MemoryDesktopTest, SettingBoundsMovesAndResizes) {
  desktop_.Open();
  EXPECT_OK(SetBounds(1, {-10, 20, 300, 400}));
  EXPECT_EQ((Rect{-10, 20, 300, 400}), Bounds(1));
}

TEST_F(MemoryDesktopTest, AbsentBoundsStayAsTheyAre) {
  desktop_.Open();
  EXPECT_OK(SetBounds(1, {10, 20, 300, 400}));
  EXPECT_OK(SetBounds(1, {.x = 0}));
  EXPECT_EQ((Rect{0, 20, 300, 400}), Bounds(1));
  EXPECT_OK(SetBounds(1, {.y = 0, .height = 500}));
  EXPECT_EQ((Rect{0, 0, 300, 500}), Bounds(1));
  EXPECT_OK(SetBounds(1, {.width = 600}));
  EXPECT_EQ((Rect{0, 0, 600, 500}), Bounds(1));
}

TEST_F(MemoryDesktopTest,
       BoundsSetOnAMaximizedWindowTakeEffectWhenItIsRestored) {
  desktop_.Open();
  EXPECT_OK(Do(WindowAction::kMaximize, 1));
  EXPECT_OK(SetBounds(1, {10, 20, 300, 400}));
  EXPECT_EQ(WindowState::kMaximized, State(1));
  EXPECT_EQ(display_.work_area, Bounds(1));
  EXPECT_OK(Do(WindowAction::kRestore, 1));
  EXPECT_EQ((Rect{10, 20, 300, 400}), Bounds(1));
}

TEST_F(MemoryDesktopTest, SizeIsRaisedToTheMinimum) {
  desktop_.Open();
  EXPECT_OK(SetBounds(1, {.width = kMinimumWidth - 1, .height = 0}));
  EXPECT_EQ(kMinimumWidth, Bounds(1).width);
  EXPECT_EQ(kMinimumHeight, Bounds(1).height);
}

TEST_F(MemoryDesktopTest, NegativeSizeIsRefusedAndNothingChanges) {
  desktop_.Open();
  const Rect before = Bounds(1);
  EXPECT_EQ(
      absl::InvalidArgumentError("The width is -5: it must not be negative."),
      SetBounds(1, {.x = 5, .width = -5}));
  EXPECT_EQ(
      absl::InvalidArgumentError("The height is -1: it must not be negative."),
      SetBounds(1, {.width = 500, .height = -1}));
  EXPECT_EQ(before, Bounds(1));
}

TEST_F(MemoryDesktopTest, CenteringUsesTheWorkArea) {
  MemoryDesktop desktop(sequence_, {.bounds = {0, 0, 1000, 800},
                                    .work_area = {100, 50, 900, 700}});
  desktop.Open();
  desktop.Change(1, BoundsChange{.width = 400, .height = 300},
                 [](const absl::Status&) {});
  desktop.Change(1, WindowAction::kCenter, [](const absl::Status&) {});
  EXPECT_EQ((Rect{350, 250, 400, 300}), desktop.Inspect(1)->bounds);
  sequence_.Run();
}

TEST_F(MemoryDesktopTest,
       CenteringALargeWindowKeepsItsTopLeftCornerInTheWorkArea) {
  desktop_.Open();
  constexpr int kHuge = std::numeric_limits<int>::max();
  EXPECT_OK(SetBounds(1, {.width = kHuge, .height = kHuge}));
  EXPECT_OK(Do(WindowAction::kCenter, 1));
  EXPECT_EQ(display_.work_area.x, Bounds(1).x);
  EXPECT_EQ(display_.work_area.y, Bounds(1).y);
}

}  // namespace
}  // namespace window_host
