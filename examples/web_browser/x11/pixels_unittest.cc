#include "examples/web_browser/x11/pixels.h"

#include <gtest/gtest.h>

#include <limits>
#include <vector>

#include "examples/web_browser/x11/monitors.h"

namespace web_browser::x11 {
namespace {

constexpr int kMost = std::numeric_limits<int>::max();
constexpr int kLeast = std::numeric_limits<int>::min();

TEST(Pixels, TimesTheScaleAndBackIsExact) {
  for (const int scale : {1, 2, 3}) {
    for (const DipRect& rect :
         {DipRect{0, 0, 1, 1}, DipRect{-301, -7, 601, 499},
          DipRect{5000, 4001, 10000, 33}}) {
      EXPECT_EQ(ToDips(ToPixels(rect, scale), scale), rect) << scale;
    }
  }
  EXPECT_EQ(ToPixels({-3, 4, 5, 6}, 2), (PixelRect{-6, 8, 10, 12}));
}

TEST(Pixels, OddPixelsAreRoundedDown) {
  EXPECT_EQ(ToDips({7, -7, 601, 499}, 2), (DipRect{3, -4, 300, 249}));
  EXPECT_EQ(ToDips({-1, -2, 1, 2}, 2), (DipRect{-1, -1, 0, 1}));
}

TEST(Pixels, WhatIsTooFarIsAsFarAsCanBe) {
  EXPECT_EQ(ToPixels({kMost, kLeast, 1 << 30, 1}, 2),
            (PixelRect{kMost, kLeast, kMost, 2}));
}

TEST(Pixels, IntersectIsWhatBothHave) {
  EXPECT_EQ(Intersect({0, 0, 10, 10}, {5, -5, 10, 10}),
            (PixelRect{5, 0, 5, 5}));
  EXPECT_TRUE(Intersect({0, 0, 10, 10}, {10, 0, 10, 10}).is_empty());
}

class MonitorsTest : public ::testing::Test {
 protected:
  const std::vector<Monitor> monitors_ = {
      {"left", {0, 0, 1280, 1024}, {0, 0, 1280, 1000}, true},
      {"right", {1280, 0, 1024, 768}, {1280, 0, 1024, 768}, false}};
};

TEST_F(MonitorsTest, AWindowIsOnTheMonitorThatShowsMostOfIt) {
  EXPECT_EQ(MonitorOf(monitors_, {0, 0, 100, 100}).name, "left");
  EXPECT_EQ(MonitorOf(monitors_, {1250, 0, 100, 100}).name, "right");
  EXPECT_EQ(MonitorOf(monitors_, {1220, 0, 100, 100}).name, "left");
}

TEST_F(MonitorsTest, AWindowOffTheScreenIsOnTheNearest) {
  EXPECT_EQ(MonitorOf(monitors_, {-500, -500, 100, 100}).name, "left");
  EXPECT_EQ(MonitorOf(monitors_, {2000, -5000, 100, 100}).name, "right");
  EXPECT_EQ(MonitorOf(monitors_, {30000, 0, 100, 100}).name, "right");
}

TEST(PulledInto, LeavesWhatIsWithinAlone) {
  EXPECT_EQ(PulledInto({0, 0, 1280, 800}, {5, 6, 100, 200}),
            (PixelRect{5, 6, 100, 200}));
}

TEST(PulledInto, MovesWhatIsOutside) {
  EXPECT_EQ(PulledInto({100, 50, 1280, 800}, {0, 0, 100, 200}),
            (PixelRect{100, 50, 100, 200}));
  EXPECT_EQ(PulledInto({100, 50, 1280, 800}, {5000, 5000, 100, 200}),
            (PixelRect{1280, 650, 100, 200}));
}

TEST(PulledInto, ShrinksWhatIsLarger) {
  EXPECT_EQ(PulledInto({100, 50, 1280, 800}, {0, 0, 3000, 2000}),
            (PixelRect{100, 50, 1280, 800}));
}

}  // namespace
}  // namespace web_browser::x11
