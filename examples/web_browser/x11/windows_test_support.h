// What tests of real windows share: a display, windows on it, and another
// program that looks at them.

#ifndef EXAMPLES_WEB_BROWSER_X11_WINDOWS_TEST_SUPPORT_H_
#define EXAMPLES_WEB_BROWSER_X11_WINDOWS_TEST_SUPPORT_H_

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "core/common/rpc/loop/loop.h"
#include "examples/web_browser/testing/event_pump.h"
#include "examples/web_browser/testing/x_session.h"
#include "examples/web_browser/x11/desktop.h"
#include "examples/web_browser/x11/managed_window.h"
#include "examples/web_browser/x11/xlib.h"

namespace web_browser::x11 {

using ConnectionPointer = std::unique_ptr<Display, decltype(&XCloseDisplay)>;

inline ConnectionPointer Connect(const XSession& session) {
  ConnectionPointer connection(XOpenDisplay(session.display().c_str()),
                               &XCloseDisplay);
  EXPECT_NE(connection, nullptr);
  return connection;
}

// Another program, which knows nothing of ours: reads with Xlib alone.
class Observer {
 public:
  explicit Observer(const XSession& session) : connection_(Connect(session)) {}

  bool HasState(WindowId window, const char* name) const {
    const std::vector<unsigned long> states = Read(window, "_NET_WM_STATE");
    return std::find(states.begin(), states.end(), AtomOf(name)) !=
           states.end();
  }
  bool IsMaximized(WindowId window) const {
    return HasState(window, "_NET_WM_STATE_MAXIMIZED_VERT") &&
           HasState(window, "_NET_WM_STATE_MAXIMIZED_HORZ");
  }
  // As in ICCCM: 0 withdrawn, 1 normal, 3 iconic.
  unsigned long WmState(WindowId window) const {
    const std::vector<unsigned long> state = Read(window, "WM_STATE");
    return state.empty() ? 0 : state[0];
  }
  WindowId ActiveWindow() const {
    const std::vector<unsigned long> active =
        Read(root(), "_NET_ACTIVE_WINDOW");
    return active.empty() ? 0 : active[0];
  }
  unsigned long WorkspaceOf(WindowId window) const {
    // 32 bits, which Xlib extends with their sign.
    return Read(window, "_NET_WM_DESKTOP").at(0) & 0xFFFFFFFF;
  }
  PixelRect WorkArea() const {
    const std::vector<unsigned long> area = Read(root(), "_NET_WORKAREA");
    return {static_cast<int>(area.at(0)), static_cast<int>(area.at(1)),
            static_cast<int>(area.at(2)), static_cast<int>(area.at(3))};
  }
  PixelRect BoundsOf(WindowId window) const {
    XWindowAttributes attributes;
    XGetWindowAttributes(connection_.get(), window, &attributes);
    PixelRect bounds{0, 0, attributes.width, attributes.height};
    WindowId child;
    XTranslateCoordinates(connection_.get(), window, root(), 0, 0, &bounds.x,
                          &bounds.y, &child);
    return bounds;
  }
  bool IsOnScreen(WindowId window) const {
    XWindowAttributes attributes;
    XGetWindowAttributes(connection_.get(), window, &attributes);
    return attributes.map_state == IsViewable;
  }
  std::string TitleOf(WindowId window) const {
    char* text = nullptr;
    Atom type;
    int bits;
    unsigned long count;
    unsigned long left;
    XGetWindowProperty(connection_.get(), window, AtomOf("_NET_WM_NAME"), 0,
                       10000, 0, AtomOf("UTF8_STRING"), &type, &bits, &count,
                       &left, reinterpret_cast<unsigned char**>(&text));
    std::string title(text, count);
    XFree(text);
    return title;
  }
  XSizeHints HintsOf(WindowId window) const {
    XSizeHints hints{};
    long supplied;
    XGetWMNormalHints(connection_.get(), window, &hints, &supplied);
    return hints;
  }
  WindowId root() const { return DefaultRootWindow(connection_.get()); }

 private:
  Atom AtomOf(const char* name) const {
    return XInternAtom(connection_.get(), name, 0);
  }
  std::vector<unsigned long> Read(WindowId window, const char* name) const {
    unsigned char* data = nullptr;
    Atom type;
    int bits;
    unsigned long count;
    unsigned long left;
    XGetWindowProperty(connection_.get(), window, AtomOf(name), 0, 10000, 0,
                       AnyPropertyType, &type, &bits, &count, &left, &data);
    const auto* numbers = reinterpret_cast<unsigned long*>(data);
    std::vector<unsigned long> values(numbers, numbers + count);
    XFree(data);
    return values;
  }

  const ConnectionPointer connection_;
};

// The parameter is the window manager.
class WindowsTest : public ::testing::TestWithParam<WindowManager> {
 protected:
  using Operation = std::function<void(Completion)>;

  // A window of the test's, as a toolkit makes it: without a frame.
  struct TestWindow {
    WindowId id;
    std::unique_ptr<ManagedWindow> managed;
  };

  explicit WindowsTest(Monitors monitors = Monitors::kOne)
      : session_(GetParam(), monitors),
        pump_(loop_, connection_.get(), [this](const XEvent& event) {
          desktop_.OnEvent(event);
          for (const auto& window : windows_) {
            if (window->managed) {
              window->managed->OnEvent(event);
            }
          }
        }) {}

  TestWindow& Make(const PixelRect& bounds) {
    auto window = std::make_unique<TestWindow>();
    window->id = XCreateSimpleWindow(
        connection_.get(), desktop_.root(), bounds.x, bounds.y, bounds.width,
        bounds.height, 0, 0, WhitePixel(connection_.get(), 0));
    // Without it the window manager chooses the place.
    XSizeHints hints{};
    hints.flags = USPosition | USSize;
    XSetWMNormalHints(connection_.get(), window->id, &hints);
    // Without a frame: flags 2, no decorations.
    const unsigned long motif[] = {2, 0, 0, 0, 0};
    const Atom motif_hints =
        XInternAtom(connection_.get(), "_MOTIF_WM_HINTS", 0);
    XChangeProperty(connection_.get(), window->id, motif_hints, motif_hints, 32,
                    PropModeReplace,
                    reinterpret_cast<const unsigned char*>(motif), 5);
    window->managed = std::make_unique<ManagedWindow>(
        desktop_, window->id, static_cast<int64_t>(windows_.size() + 7));
    windows_.push_back(std::move(window));
    return *windows_.back();
  }
  TestWindow& Open(const PixelRect& bounds = {100, 80, 400, 300}) {
    TestWindow& window = Make(bounds);
    EXPECT_EQ(Show(window), absl::OkStatus());
    return window;
  }

  absl::Status Show(TestWindow& window) {
    XMapWindow(connection_.get(), window.id);
    return Do(
        [&](Completion done) { window.managed->AwaitShown(std::move(done)); });
  }

  // Runs the operation until it is complete.
  absl::Status Do(const Operation& operation) {
    std::optional<absl::Status> outcome;
    operation([&](const absl::Status& status) {
      EXPECT_FALSE(outcome.has_value()) << "completed twice";
      outcome = status;
    });
    EXPECT_FALSE(outcome.has_value()) << "completed from within";
    EXPECT_TRUE(pump_.RunUntil([&] { return outcome.has_value(); }));
    return *outcome;
  }
  absl::Status SetMaximized(TestWindow& window, bool maximized) {
    return Do([&](Completion done) {
      window.managed->SetMaximized(maximized, std::move(done));
    });
  }
  absl::Status SetFullScreen(TestWindow& window, bool full_screen) {
    return Do([&](Completion done) {
      window.managed->SetFullScreen(full_screen, std::move(done));
    });
  }
  absl::Status SetBounds(TestWindow& window, const PixelRect& bounds) {
    return Do([&](Completion done) {
      window.managed->SetBounds(bounds, std::move(done));
    });
  }
  absl::Status Minimize(TestWindow& window) {
    return Do(
        [&](Completion done) { window.managed->Minimize(std::move(done)); });
  }
  absl::Status BringBack(TestWindow& window) {
    return Do(
        [&](Completion done) { window.managed->BringBack(std::move(done)); });
  }
  absl::Status Activate(TestWindow& window) {
    return Do(
        [&](Completion done) { window.managed->Activate(std::move(done)); });
  }
  absl::Status Deactivate(TestWindow& window, WindowId next) {
    return Do([&](Completion done) {
      window.managed->Deactivate(next, std::move(done));
    });
  }

  std::string Name() const { return NameOf(GetParam()); }

  XSession session_;
  const ConnectionPointer connection_ = Connect(session_);
  Observer observer_{session_};
  rpc::loop::Loop loop_;
  Desktop desktop_{connection_.get(), loop_};
  std::vector<std::unique_ptr<TestWindow>> windows_;
  EventPump pump_;
};

// Instantiates the tests of a fixture for each window manager there is.
#ifdef TORVANE_HAS_XFWM4
#define WEB_BROWSER_UNDER_EACH_WINDOW_MANAGER(fixture)                  \
  INSTANTIATE_TEST_SUITE_P(Openbox, fixture,                            \
                           ::testing::Values(WindowManager::kOpenbox)); \
  INSTANTIATE_TEST_SUITE_P(Xfwm4, fixture,                              \
                           ::testing::Values(WindowManager::kXfwm4))
#else
#define WEB_BROWSER_UNDER_EACH_WINDOW_MANAGER(fixture) \
  INSTANTIATE_TEST_SUITE_P(Openbox, fixture,           \
                           ::testing::Values(WindowManager::kOpenbox))
#endif

}  // namespace web_browser::x11

#endif  // EXAMPLES_WEB_BROWSER_X11_WINDOWS_TEST_SUPPORT_H_
