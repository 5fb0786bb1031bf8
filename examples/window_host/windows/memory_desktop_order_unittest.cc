// When changes complete, and what the observer is told by then.

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "absl/strings/str_cat.h"
#include "core/common/rpc/testing/manual_sequence.h"
#include "examples/window_host/windows/memory_desktop.h"
#include "gmock/gmock.h"
#include "gtest/gtest.h"

namespace window_host {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::IsSupersetOf;

// Writes down what it is told, each thing as a word.
class RecordingObserver final : public WindowObserver {
 public:
  void OnWindowOpened(const WindowView& first) override {
    told.push_back(absl::StrCat("opened ", first.id, " ", first.title,
                                first.active ? " active" : ""));
  }
  void OnWindowChanged(int64_t id) override {
    told.push_back(absl::StrCat("changed ", id));
  }
  void OnCloseWish(int64_t id) override {
    told.push_back(absl::StrCat("wish ", id));
  }
  void OnWindowGone(const WindowView& last,
                    rpc::WindowCloseReason reason) override {
    told.push_back(absl::StrCat("gone ", last.id, " ", last.title, " ",
                                rpc::WindowCloseReason_Name(reason)));
  }

  std::vector<std::string> told;
};

class MemoryDesktopOrderTest : public ::testing::Test {
 protected:
  MemoryDesktopOrderTest() {
    desktop_.Open();
    desktop_.Open();
    sequence_.Run();
    desktop_.set_observer(&observer_);
  }

  // What the observer is told until the change completes, and that it did.
  std::vector<std::string> ToldOf(int64_t id, WindowChange change) {
    observer_.told.clear();
    desktop_.Change(id, std::move(change), [this](const absl::Status& status) {
      observer_.told.push_back(status.ok() ? "done" : "failed");
    });
    EXPECT_THAT(observer_.told, IsEmpty());
    sequence_.Run();
    return observer_.told;
  }

  rpc::loop::ManualSequence sequence_;
  MemoryDesktop desktop_{sequence_, Display{}};
  RecordingObserver observer_;
};

TEST_F(MemoryDesktopOrderTest, ObserverIsToldOfAChangeBeforeItCompletes) {
  EXPECT_THAT(ToldOf(1, WindowAction::kMaximize),
              ElementsAre("changed 1", "done"));
  EXPECT_THAT(ToldOf(1, rpc::WindowTitle()), ElementsAre("changed 1", "done"));
}

TEST_F(MemoryDesktopOrderTest, ObserverIsToldNothingOfAChangeThatFails) {
  EXPECT_THAT(ToldOf(1, BoundsChange{.width = -1}), ElementsAre("failed"));
  EXPECT_THAT(ToldOf(7, WindowAction::kShow), ElementsAre("failed"));
}

TEST_F(MemoryDesktopOrderTest,
       ObserverIsToldOfBothWindowsBetweenWhichActivationGoes) {
  EXPECT_THAT(ToldOf(1, WindowAction::kActivate),
              IsSupersetOf({"changed 1", "changed 2"}));
  EXPECT_THAT(ToldOf(1, WindowAction::kHide),
              IsSupersetOf({"changed 1", "changed 2"}));
}

TEST_F(MemoryDesktopOrderTest, ObserverIsToldOfANewWindowBeforeAllElseAboutIt) {
  desktop_.Open();
  EXPECT_THAT(observer_.told, IsEmpty());
  sequence_.Run();
  EXPECT_THAT(observer_.told, ElementsAre("opened 3 Window 3 active",
                                          "changed 2", "changed 3"));
}

TEST_F(MemoryDesktopOrderTest, ObserverIsToldOfANewWindowBeforeItsIdIsGiven) {
  desktop_.Open({.url = "about:blank"}, [&](const absl::StatusOr<int64_t>& id) {
    observer_.told.push_back(absl::StrCat("done ", *id));
  });
  EXPECT_THAT(observer_.told, IsEmpty());
  sequence_.Run();
  EXPECT_THAT(observer_.told, ElementsAre("opened 3 about:blank active",
                                          "changed 2", "changed 3", "done 3"));
}

TEST_F(MemoryDesktopOrderTest, ObserverIsToldOfANewWindowThatIsClosedAtOnce) {
  desktop_.Change(desktop_.Open(), Close{}, [](const absl::Status&) {});
  sequence_.Run();
  EXPECT_THAT(observer_.told,
              ElementsAre("opened 3 Window 3 active", "changed 2",
                          "gone 3 Window 3 WINDOW_CLOSE_REASON_UNSPECIFIED",
                          "changed 2"));
}

TEST_F(MemoryDesktopOrderTest, ObserverIsToldHowAGoneWindowWasAndWhyItWent) {
  EXPECT_THAT(ToldOf(2, Close{rpc::WINDOW_CLOSE_REASON_USER}),
              ElementsAre("gone 2 Window 2 WINDOW_CLOSE_REASON_USER",
                          "changed 1", "done"));
}

TEST_F(MemoryDesktopOrderTest, ObserverIsToldOfOpenWindowsOnly) {
  desktop_.Change(1, WindowAction::kMaximize, [](const absl::Status&) {});
  EXPECT_THAT(
      ToldOf(1, Close{}),
      ElementsAre("gone 1 Window 1 WINDOW_CLOSE_REASON_UNSPECIFIED", "done"));
}

TEST_F(MemoryDesktopOrderTest, CompletionMayRequestTheNextChange) {
  absl::Status shown = absl::UnknownError("not completed");
  desktop_.Change(1, Close{}, [&](const absl::Status&) {
    desktop_.Change(1, WindowAction::kShow,
                    [&](const absl::Status& status) { shown = status; });
  });
  sequence_.Run();
  EXPECT_EQ(absl::NotFoundError("No window 1."), shown);
}

TEST_F(MemoryDesktopOrderTest, NextChangeBuildsOnOneThatHasNotCompletedYet) {
  desktop_.Change(1, WindowAction::kHide, [](const absl::Status&) {});
  EXPECT_FALSE(desktop_.Inspect(1)->visible);
  absl::Status activated;
  desktop_.Change(1, WindowAction::kActivate,
                  [&](const absl::Status& status) { activated = status; });
  sequence_.Run();
  EXPECT_EQ(absl::FailedPreconditionError("Window 1 is hidden: show it first."),
            activated);
}

}  // namespace
}  // namespace window_host
