// Two monitors, one of which is unplugged and plugged in again.

#include "examples/web_browser/x11/monitors.h"

#include <gtest/gtest.h>

#include <vector>

#include "examples/web_browser/x11/windows_test_support.h"

namespace web_browser::x11 {
namespace {

constexpr PixelRect kLeft{0, 0, 1280, 1024};
constexpr PixelRect kRight{1280, 0, 1024, 768};

class TwoMonitorsTest : public WindowsTest {
 protected:
  TwoMonitorsTest() : WindowsTest(Monitors::kTwo) {}

  // A panel that keeps `height` pixels at the bottom of the second monitor.
  void OpenPanelOnTheRight(int height) {
    TestWindow& panel =
        Make({kRight.x, kRight.bottom() - height, kRight.width, height});
    // From the bottom of both monitors together, which the first one reaches.
    const unsigned long bottom = kLeft.bottom() - kRight.bottom() + height;
    SetNumbers(panel.id, "_NET_WM_STRUT_PARTIAL", XA_CARDINAL,
               {0, 0, 0, bottom, 0, 0, 0, 0, 0, 0, 1280, 2303});
    SetNumbers(panel.id, "_NET_WM_WINDOW_TYPE", XA_ATOM,
               {XInternAtom(connection_.get(), "_NET_WM_WINDOW_TYPE_DOCK", 0)});
    EXPECT_EQ(Show(panel), absl::OkStatus());
  }

 private:
  void SetNumbers(WindowId window,
                  const char* name,
                  Atom type,
                  const std::vector<unsigned long>& numbers) {
    XChangeProperty(connection_.get(), window,
                    XInternAtom(connection_.get(), name, 0), type, 32,
                    PropModeReplace,
                    reinterpret_cast<const unsigned char*>(numbers.data()),
                    static_cast<int>(numbers.size()));
  }
};

WEB_BROWSER_UNDER_EACH_WINDOW_MANAGER(TwoMonitorsTest);

TEST_P(TwoMonitorsTest, BothAreThereThePrimaryOneFirst) {
  const std::vector<Monitor> monitors = ReadMonitors(desktop_);
  ASSERT_EQ(monitors.size(), 2U);
  EXPECT_EQ(monitors[0], (Monitor{"DUMMY0", kLeft, kLeft, true}));
  EXPECT_EQ(monitors[1], (Monitor{"DUMMY1", kRight, kRight, false}));
}

TEST_P(TwoMonitorsTest, MaximizesOnTheMonitorOfTheWindow) {
  TestWindow& left = Open({100, 80, 400, 300});
  TestWindow& right = Open({1400, 80, 400, 300});
  EXPECT_EQ(SetMaximized(left, true), absl::OkStatus());
  EXPECT_EQ(observer_.BoundsOf(left.id), kLeft);
  EXPECT_EQ(SetMaximized(right, true), absl::OkStatus());
  EXPECT_EQ(observer_.BoundsOf(right.id), kRight);
  EXPECT_EQ(SetMaximized(right, false), absl::OkStatus());
  EXPECT_EQ(observer_.BoundsOf(right.id), (PixelRect{1400, 80, 400, 300}));
}

TEST_P(TwoMonitorsTest, FillsTheScreenOfTheWindow) {
  TestWindow& right = Open({1400, 80, 400, 300});
  EXPECT_EQ(SetFullScreen(right, true), absl::OkStatus());
  EXPECT_EQ(observer_.BoundsOf(right.id), kRight);
  EXPECT_EQ(SetFullScreen(right, false), absl::OkStatus());
  EXPECT_EQ(observer_.BoundsOf(right.id), (PixelRect{1400, 80, 400, 300}));
}

TEST_P(TwoMonitorsTest, BoundsOnBothAndAcrossAreExact) {
  TestWindow& window = Open();
  for (const PixelRect& bounds :
       {PixelRect{1500, 100, 401, 299}, PixelRect{1200, 100, 333, 222},
        PixelRect{-50, 900, 300, 200}, PixelRect{2200, 700, 301, 201}}) {
    EXPECT_EQ(SetBounds(window, bounds), absl::OkStatus());
    EXPECT_EQ(observer_.BoundsOf(window.id), bounds);
  }
}

TEST_P(TwoMonitorsTest, APanelTakesFromItsOwnMonitorOnly) {
  OpenPanelOnTheRight(30);
  const std::vector<Monitor> monitors = ReadMonitors(desktop_);
  ASSERT_EQ(monitors.size(), 2U);
  EXPECT_EQ(monitors[0].work_area, kLeft);
  EXPECT_EQ(monitors[1].work_area, (PixelRect{1280, 0, 1024, 738}));
  TestWindow& window = Open({1400, 80, 400, 300});
  EXPECT_EQ(SetMaximized(window, true), absl::OkStatus());
  EXPECT_EQ(observer_.BoundsOf(window.id), (PixelRect{1280, 0, 1024, 738}));
}

TEST_P(TwoMonitorsTest, AMonitorMayBeUnpluggedAndPluggedInAgain) {
  session_.UnplugSecondMonitor();
  std::vector<Monitor> monitors = ReadMonitors(desktop_);
  ASSERT_EQ(monitors.size(), 1U);
  EXPECT_EQ(monitors[0].bounds, kLeft);
  session_.PlugSecondMonitor();
  monitors = ReadMonitors(desktop_);
  ASSERT_EQ(monitors.size(), 2U);
  EXPECT_EQ(monitors[1].bounds, kRight);
}

}  // namespace
}  // namespace web_browser::x11
