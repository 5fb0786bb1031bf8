#include "examples/window_host/desktop.h"

#include <cstdint>
#include <functional>
#include <limits>
#include <vector>

#include "gmock/gmock.h"
#include "gtest/gtest.h"

namespace window_host {
namespace {

using ::testing::ElementsAre;

class DesktopTest : public ::testing::Test {
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

  void MakeIndependent(int64_t id) {
    (*desktop_.Look(id))->activation_independent = true;
  }

  const Display display_ = {};
  Desktop desktop_{display_};
};

#define EXPECT_OK(expression) EXPECT_EQ(absl::OkStatus(), (expression))

TEST_F(DesktopTest, NewWindowIsVisibleNormalActiveAndInFront) {
  EXPECT_EQ(1, desktop_.Open());
  EXPECT_EQ(2, desktop_.Open());
  EXPECT_TRUE(Visible(2));
  EXPECT_EQ(WindowState::kNormal, State(2));
  EXPECT_THAT(Active(), ElementsAre(2));
  EXPECT_THAT(desktop_.stacking(), ElementsAre(2, 1));
  EXPECT_EQ("Window 2", (*desktop_.Look(2))->title);
}

TEST_F(DesktopTest, NewWindowsDoNotCoverEachOthersTitle) {
  desktop_.Open();
  desktop_.Open();
  EXPECT_LT(Bounds(1).x, Bounds(2).x);
  EXPECT_LT(Bounds(1).y, Bounds(2).y);
}

TEST_F(DesktopTest, NewWindowsStayWithinTheWorkAreaHoweverManyThereAre) {
  for (int i = 0; i < 20; ++i) {
    const Rect bounds = Bounds(desktop_.Open());
    EXPECT_LE(bounds.y + bounds.height,
              display_.work_area.y + display_.work_area.height);
  }
}

TEST_F(DesktopTest, EveryOperationNamesTheWindowThatItDoesNotFind) {
  desktop_.Open();
  const std::vector<absl::Status> statuses = {
      desktop_.Close(7),         desktop_.Show(7),
      desktop_.Hide(7),          desktop_.Activate(7),
      desktop_.Focus(7),         desktop_.Deactivate(7),
      desktop_.Maximize(7),      desktop_.EnterFullScreen(7),
      desktop_.Restore(7),       desktop_.ExitFullScreen(7),
      desktop_.Minimize(7),      desktop_.SetBounds(7, {}),
      desktop_.Center(7),        desktop_.Inspect(7).status(),
      desktop_.Look(7).status(),
  };
  for (const absl::Status& status : statuses)
    EXPECT_EQ(absl::NotFoundError("No window 7."), status);
}

TEST_F(DesktopTest, ClosedWindowIsGoneAndItsIdIsNotUsedAgain) {
  desktop_.Open();
  EXPECT_OK(desktop_.Close(1));
  EXPECT_EQ(absl::NotFoundError("No window 1."), desktop_.Show(1));
  EXPECT_TRUE(desktop_.stacking().empty());
  EXPECT_EQ(2, desktop_.Open());
}

TEST_F(DesktopTest, HiddenWindowIsNeitherVisibleNorActive) {
  desktop_.Open();
  EXPECT_OK(desktop_.Hide(1));
  EXPECT_FALSE(Visible(1));
  EXPECT_THAT(Active(), ElementsAre());
}

TEST_F(DesktopTest, MinimizedWindowIsNeitherVisibleNorActive) {
  desktop_.Open();
  EXPECT_OK(desktop_.Minimize(1));
  EXPECT_EQ(WindowState::kMinimized, State(1));
  EXPECT_FALSE(Visible(1));
  EXPECT_THAT(Active(), ElementsAre());
}

TEST_F(DesktopTest, ShowingMakesVisibleAndActive) {
  desktop_.Open();
  desktop_.Open();
  EXPECT_OK(desktop_.Hide(1));
  EXPECT_OK(desktop_.Show(1));
  EXPECT_TRUE(Visible(1));
  EXPECT_THAT(Active(), ElementsAre(1));
  EXPECT_THAT(desktop_.stacking(), ElementsAre(1, 2));
}

TEST_F(DesktopTest, ShowingBringsAMinimizedWindowBackToWhatItWas) {
  desktop_.Open();
  EXPECT_OK(desktop_.Maximize(1));
  EXPECT_OK(desktop_.Minimize(1));
  EXPECT_OK(desktop_.Show(1));
  EXPECT_EQ(WindowState::kMaximized, State(1));
  EXPECT_TRUE(Visible(1));
}

TEST_F(DesktopTest, WindowThatGoesAwayPassesActivationOnInStackingOrder) {
  const std::vector<std::function<absl::Status(int64_t)>> ways_to_go = {
      [this](int64_t id) { return desktop_.Hide(id); },
      [this](int64_t id) { return desktop_.Minimize(id); },
      [this](int64_t id) { return desktop_.Close(id); },
      [this](int64_t id) { return desktop_.Deactivate(id); },
  };
  for (const auto& go : ways_to_go) {
    const int64_t back = desktop_.Open();
    const int64_t hidden = desktop_.Open();
    const int64_t minimized = desktop_.Open();
    const int64_t front = desktop_.Open();
    EXPECT_OK(desktop_.Hide(hidden));
    EXPECT_OK(desktop_.Minimize(minimized));
    EXPECT_OK(go(front));
    EXPECT_THAT(Active(), ElementsAre(back));
    EXPECT_EQ(back, desktop_.stacking().front());
  }
}

TEST_F(DesktopTest, InactiveWindowThatGoesAwayLeavesActivationAlone) {
  desktop_.Open();
  desktop_.Open();
  desktop_.Open();
  EXPECT_OK(desktop_.Hide(1));
  EXPECT_OK(desktop_.Deactivate(2));
  EXPECT_OK(desktop_.Close(2));
  EXPECT_THAT(Active(), ElementsAre(3));
}

TEST_F(DesktopTest, OnlyWindowCanBeDeactivated) {
  desktop_.Open();
  EXPECT_OK(desktop_.Deactivate(1));
  EXPECT_THAT(Active(), ElementsAre());
  EXPECT_TRUE(Visible(1));
}

TEST_F(DesktopTest, ActivatingRaisesAndLeavesOneWindowActive) {
  desktop_.Open();
  desktop_.Open();
  desktop_.Open();
  EXPECT_OK(desktop_.Activate(1));
  EXPECT_THAT(Active(), ElementsAre(1));
  EXPECT_THAT(desktop_.stacking(), ElementsAre(1, 3, 2));
}

TEST_F(DesktopTest, ActivatingBringsAMinimizedWindowBack) {
  desktop_.Open();
  EXPECT_OK(desktop_.Minimize(1));
  EXPECT_OK(desktop_.Activate(1));
  EXPECT_EQ(WindowState::kNormal, State(1));
  EXPECT_THAT(Active(), ElementsAre(1));
}

TEST_F(DesktopTest, HiddenWindowCannotBeActivatedOrFocused) {
  desktop_.Open();
  EXPECT_OK(desktop_.Minimize(1));
  EXPECT_OK(desktop_.Hide(1));
  const absl::Status expected =
      absl::FailedPreconditionError("Window 1 is hidden: show it first.");
  EXPECT_EQ(expected, desktop_.Activate(1));
  EXPECT_EQ(expected, desktop_.Focus(1));
  EXPECT_EQ(WindowState::kMinimized, State(1));
  EXPECT_THAT(Active(), ElementsAre());
}

TEST_F(DesktopTest, FocusActivatesAndGivesThePageTheKeyboard) {
  desktop_.Open();
  desktop_.Open();
  EXPECT_OK(desktop_.Focus(1));
  EXPECT_THAT(Active(), ElementsAre(1));
  EXPECT_TRUE(View(1).page_has_keyboard);
  EXPECT_FALSE(View(2).page_has_keyboard);
}

TEST_F(DesktopTest, PageKeepsTheKeyboardWhileItsWindowStaysActive) {
  desktop_.Open();
  EXPECT_OK(desktop_.Focus(1));
  EXPECT_OK(desktop_.Activate(1));
  EXPECT_TRUE(View(1).page_has_keyboard);
}

TEST_F(DesktopTest, PageLosesTheKeyboardWithTheActivation) {
  desktop_.Open();
  desktop_.Open();
  EXPECT_OK(desktop_.Focus(1));
  EXPECT_OK(desktop_.Activate(2));
  EXPECT_OK(desktop_.Activate(1));
  EXPECT_FALSE(View(1).page_has_keyboard);
  EXPECT_FALSE(View(2).page_has_keyboard);
}

TEST_F(DesktopTest, PageLosesTheKeyboardWhenNoWindowIsActiveInItsPlace) {
  desktop_.Open();
  EXPECT_OK(desktop_.Focus(1));
  EXPECT_OK(desktop_.Hide(1));
  EXPECT_OK(desktop_.Show(1));
  EXPECT_FALSE(View(1).page_has_keyboard);
}

TEST_F(DesktopTest, IndependentWindowIsNotActivatedInAnothersPlace) {
  desktop_.Open();
  desktop_.Open();
  desktop_.Open();
  MakeIndependent(2);
  EXPECT_OK(desktop_.Hide(3));
  EXPECT_THAT(Active(), ElementsAre(1));
  EXPECT_OK(desktop_.Hide(1));
  EXPECT_THAT(Active(), ElementsAre());
}

TEST_F(DesktopTest, IndependentWindowIsActivatedOnRequest) {
  desktop_.Open();
  desktop_.Open();
  MakeIndependent(1);
  EXPECT_OK(desktop_.Activate(1));
  EXPECT_THAT(Active(), ElementsAre(1));
}

TEST_F(DesktopTest, MaximizedWindowFillsTheWorkArea) {
  desktop_.Open();
  EXPECT_OK(desktop_.Maximize(1));
  EXPECT_EQ(WindowState::kMaximized, State(1));
  EXPECT_EQ(display_.work_area, Bounds(1));
}

TEST_F(DesktopTest, RestoringAMaximizedWindowBringsItsBoundsBack) {
  desktop_.Open();
  const Rect before = Bounds(1);
  EXPECT_OK(desktop_.Maximize(1));
  EXPECT_OK(desktop_.Maximize(1));
  EXPECT_OK(desktop_.Restore(1));
  EXPECT_EQ(WindowState::kNormal, State(1));
  EXPECT_EQ(before, Bounds(1));
}

TEST_F(DesktopTest, RestoringANormalWindowDoesNothing) {
  desktop_.Open();
  const Rect before = Bounds(1);
  EXPECT_OK(desktop_.Restore(1));
  EXPECT_EQ(WindowState::kNormal, State(1));
  EXPECT_EQ(before, Bounds(1));
}

TEST_F(DesktopTest, FullScreenWindowFillsTheDisplay) {
  desktop_.Open();
  EXPECT_OK(desktop_.EnterFullScreen(1));
  EXPECT_EQ(WindowState::kFullScreen, State(1));
  EXPECT_EQ(display_.bounds, Bounds(1));
}

TEST_F(DesktopTest, LeavingFullScreenReturnsToWhatTheWindowWas) {
  desktop_.Open();
  const Rect before = Bounds(1);
  EXPECT_OK(desktop_.EnterFullScreen(1));
  EXPECT_OK(desktop_.ExitFullScreen(1));
  EXPECT_EQ(WindowState::kNormal, State(1));
  EXPECT_EQ(before, Bounds(1));

  EXPECT_OK(desktop_.Maximize(1));
  EXPECT_OK(desktop_.EnterFullScreen(1));
  EXPECT_OK(desktop_.ExitFullScreen(1));
  EXPECT_EQ(WindowState::kMaximized, State(1));
}

TEST_F(DesktopTest, RestoringGoesBackOneStateAtATime) {
  desktop_.Open();
  EXPECT_OK(desktop_.Maximize(1));
  EXPECT_OK(desktop_.EnterFullScreen(1));
  EXPECT_OK(desktop_.Minimize(1));
  EXPECT_OK(desktop_.Restore(1));
  EXPECT_EQ(WindowState::kFullScreen, State(1));
  EXPECT_OK(desktop_.Restore(1));
  EXPECT_EQ(WindowState::kMaximized, State(1));
  EXPECT_OK(desktop_.Restore(1));
  EXPECT_EQ(WindowState::kNormal, State(1));
}

TEST_F(DesktopTest, MaximizingLeavesFullScreen) {
  desktop_.Open();
  EXPECT_OK(desktop_.EnterFullScreen(1));
  EXPECT_OK(desktop_.Maximize(1));
  EXPECT_EQ(WindowState::kMaximized, State(1));
}

TEST_F(DesktopTest, ExitingFullScreenDoesNothingToAWindowThatIsNot) {
  desktop_.Open();
  EXPECT_OK(desktop_.Maximize(1));
  EXPECT_OK(desktop_.ExitFullScreen(1));
  EXPECT_EQ(WindowState::kMaximized, State(1));

  EXPECT_OK(desktop_.EnterFullScreen(1));
  EXPECT_OK(desktop_.Minimize(1));
  EXPECT_OK(desktop_.ExitFullScreen(1));
  EXPECT_OK(desktop_.Restore(1));
  EXPECT_EQ(WindowState::kFullScreen, State(1));
}

TEST_F(DesktopTest, WindowThatComesBackFromMinimizedIsActivated) {
  const std::vector<std::function<absl::Status(int64_t)>> ways_back = {
      [this](int64_t id) { return desktop_.Restore(id); },
      [this](int64_t id) { return desktop_.Maximize(id); },
      [this](int64_t id) { return desktop_.EnterFullScreen(id); },
  };
  desktop_.Open();
  desktop_.Open();
  for (const auto& come_back : ways_back) {
    EXPECT_OK(desktop_.Minimize(1));
    EXPECT_OK(come_back(1));
    EXPECT_TRUE(Visible(1));
    EXPECT_THAT(Active(), ElementsAre(1));
  }
}

TEST_F(DesktopTest, HiddenWindowThatComesBackFromMinimizedStaysHidden) {
  desktop_.Open();
  EXPECT_OK(desktop_.Minimize(1));
  EXPECT_OK(desktop_.Hide(1));
  EXPECT_OK(desktop_.Restore(1));
  EXPECT_EQ(WindowState::kNormal, State(1));
  EXPECT_FALSE(Visible(1));
  EXPECT_THAT(Active(), ElementsAre());
}

TEST_F(DesktopTest, ChangingStateOfAVisibleWindowDoesNotActivateIt) {
  desktop_.Open();
  desktop_.Open();
  EXPECT_OK(desktop_.Maximize(1));
  EXPECT_OK(desktop_.EnterFullScreen(1));
  EXPECT_OK(desktop_.Restore(1));
  EXPECT_THAT(Active(), ElementsAre(2));
}

TEST_F(DesktopTest, MinimizedWindowHasTheBoundsThatItComesBackTo) {
  desktop_.Open();
  const Rect normal = Bounds(1);
  EXPECT_OK(desktop_.Minimize(1));
  EXPECT_EQ(normal, Bounds(1));
  EXPECT_OK(desktop_.Maximize(1));
  EXPECT_OK(desktop_.Minimize(1));
  EXPECT_EQ(display_.work_area, Bounds(1));
}

TEST_F(DesktopTest, SettingBoundsMovesAndResizes) {
  desktop_.Open();
  EXPECT_OK(desktop_.SetBounds(1, {-10, 20, 300, 400}));
  EXPECT_EQ((Rect{-10, 20, 300, 400}), Bounds(1));
}

TEST_F(DesktopTest, AbsentBoundsStayAsTheyAre) {
  desktop_.Open();
  EXPECT_OK(desktop_.SetBounds(1, {10, 20, 300, 400}));
  EXPECT_OK(desktop_.SetBounds(1, {.x = 0}));
  EXPECT_EQ((Rect{0, 20, 300, 400}), Bounds(1));
  EXPECT_OK(desktop_.SetBounds(1, {.y = 0, .height = 500}));
  EXPECT_EQ((Rect{0, 0, 300, 500}), Bounds(1));
  EXPECT_OK(desktop_.SetBounds(1, {.width = 600}));
  EXPECT_EQ((Rect{0, 0, 600, 500}), Bounds(1));
}

TEST_F(DesktopTest, BoundsSetOnAMaximizedWindowTakeEffectWhenItIsRestored) {
  desktop_.Open();
  EXPECT_OK(desktop_.Maximize(1));
  EXPECT_OK(desktop_.SetBounds(1, {10, 20, 300, 400}));
  EXPECT_EQ(WindowState::kMaximized, State(1));
  EXPECT_EQ(display_.work_area, Bounds(1));
  EXPECT_OK(desktop_.Restore(1));
  EXPECT_EQ((Rect{10, 20, 300, 400}), Bounds(1));
}

TEST_F(DesktopTest, SizeIsRaisedToTheMinimum) {
  desktop_.Open();
  EXPECT_OK(desktop_.SetBounds(1, {.width = kMinimumWidth - 1, .height = 0}));
  EXPECT_EQ(kMinimumWidth, Bounds(1).width);
  EXPECT_EQ(kMinimumHeight, Bounds(1).height);
}

TEST_F(DesktopTest, NegativeSizeIsRefusedAndNothingChanges) {
  desktop_.Open();
  const Rect before = Bounds(1);
  EXPECT_EQ(
      absl::InvalidArgumentError("The width is -5: it must not be negative."),
      desktop_.SetBounds(1, {.x = 5, .width = -5}));
  EXPECT_EQ(
      absl::InvalidArgumentError("The height is -1: it must not be negative."),
      desktop_.SetBounds(1, {.width = 500, .height = -1}));
  EXPECT_EQ(before, Bounds(1));
}

TEST_F(DesktopTest, CenteringUsesTheWorkArea) {
  Desktop desktop(
      {.bounds = {0, 0, 1000, 800}, .work_area = {100, 50, 900, 700}});
  desktop.Open();
  EXPECT_OK(desktop.SetBounds(1, {.width = 400, .height = 300}));
  EXPECT_OK(desktop.Center(1));
  EXPECT_EQ((Rect{350, 250, 400, 300}), desktop.Inspect(1)->bounds);
}

TEST_F(DesktopTest, CenteringALargeWindowKeepsItsTopLeftCornerInTheWorkArea) {
  desktop_.Open();
  constexpr int kHuge = std::numeric_limits<int>::max();
  EXPECT_OK(desktop_.SetBounds(1, {.width = kHuge, .height = kHuge}));
  EXPECT_OK(desktop_.Center(1));
  EXPECT_EQ(display_.work_area.x, Bounds(1).x);
  EXPECT_EQ(display_.work_area.y, Bounds(1).y);
}

}  // namespace
}  // namespace window_host
