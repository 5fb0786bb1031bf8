// A change of a window that the window manager has confirmed: by a client of
// the browser's service, and by a bare X client that does the same to a window
// of its own and waits for the same fence. bench.py starts what is around it:
// $DISPLAY has a window manager, $WEB_BROWSER_SOCKET is the browser's socket.
//
// Only the change is timed, not the one that undoes it. The counters are the
// least and the median of all changes, in microseconds.

#include <X11/Xatom.h>
#include <X11/Xlib.h>
#include <X11/Xutil.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdlib>
#include <memory>
#include <vector>

// X.h has macros of these names.
#undef None
#undef Status
#undef Success

#include <benchmark/benchmark.h>

#include "absl/log/absl_check.h"
#include "core/common/rpc/loop/loop.h"
#include "core/common/rpc/transport/client.h"
#include "rpc/browser/browser_window.pb.h"

namespace {

using Clock = std::chrono::steady_clock;
using rpc::transport::Client;
using rpc::transport::ClientController;

// Two that a window takes turns with.
constexpr std::array<std::array<int, 4>, 2> kBounds = {
    {{40, 50, 600, 400}, {60, 80, 640, 430}}};

class BareClient {
 public:
  BareClient()
      : display_(XOpenDisplay(nullptr), &XCloseDisplay),
        root_(DefaultRootWindow(display_.get())),
        window_(Make(500, 400)),
        helper_(Make(1, 1)) {
    XSelectInput(display_.get(), helper_, StructureNotifyMask);
    // As the browser's: without a frame.
    const std::array<long, 5> hints = {2, 0, 0, 0, 0};
    const Atom motif = Named("_MOTIF_WM_HINTS");
    XChangeProperty(display_.get(), window_, motif, motif, 32, PropModeReplace,
                    reinterpret_cast<const unsigned char*>(hints.data()), 5);
    XMapWindow(display_.get(), window_);
    while (ReadNumbers(window_, "WM_STATE").empty())
      WaitForFence();
  }

  void SetBounds(const std::array<int, 4>& bounds) {
    XMoveResizeWindow(display_.get(), window_, bounds[0], bounds[1], bounds[2],
                      bounds[3]);
    do {
      WaitForFence();
    } while (ReadBounds() != bounds);
  }

  void SetMaximized(bool maximized) {
    XEvent event{};
    event.xclient.type = ClientMessage;
    event.xclient.window = window_;
    event.xclient.message_type = Named("_NET_WM_STATE");
    event.xclient.format = 32;
    event.xclient.data.l[0] = maximized ? 1 : 0;
    event.xclient.data.l[1] = static_cast<long>(vertically_);
    event.xclient.data.l[2] = static_cast<long>(horizontally_);
    event.xclient.data.l[3] = 2;
    XSendEvent(display_.get(), root_, 0,
               SubstructureRedirectMask | SubstructureNotifyMask, &event);
    do {
      WaitForFence();
    } while (!IsMaximized(maximized));
  }

 private:
  Window Make(unsigned width, unsigned height) {
    return XCreateSimpleWindow(display_.get(), root_, 0, 0, width, height, 0, 0,
                               0);
  }

  Atom Named(const char* name) const {
    return XInternAtom(display_.get(), name, 0);
  }

  // The window manager has come past all that was sent before.
  void WaitForFence() {
    ++sent_;
    XMoveWindow(display_.get(), helper_, sent_ % 32'000, 0);
    XEvent event;
    do {
      XWindowEvent(display_.get(), helper_, StructureNotifyMask, &event);
    } while (event.type != ConfigureNotify ||
             event.xconfigure.x != sent_ % 32'000);
  }

  std::vector<unsigned long> ReadNumbers(Window window, const char* name) {
    Atom type = 0;
    int format = 0;
    unsigned long count = 0;
    unsigned long left = 0;
    unsigned char* data = nullptr;
    XGetWindowProperty(display_.get(), window, Named(name), 0, 64, 0,
                       AnyPropertyType, &type, &format, &count, &left, &data);
    const auto* numbers = reinterpret_cast<const unsigned long*>(data);
    std::vector<unsigned long> read(numbers, numbers + count);
    XFree(data);
    return read;
  }

  std::array<int, 4> ReadBounds() {
    Window root = 0;
    Window child = 0;
    int x = 0;
    int y = 0;
    unsigned width = 0;
    unsigned height = 0;
    unsigned ignored = 0;
    XGetGeometry(display_.get(), window_, &root, &x, &y, &width, &height,
                 &ignored, &ignored);
    XTranslateCoordinates(display_.get(), window_, root_, 0, 0, &x, &y, &child);
    return {x, y, static_cast<int>(width), static_cast<int>(height)};
  }

  bool IsMaximized(bool maximized) {
    const auto states = ReadNumbers(window_, "_NET_WM_STATE");
    const bool is = std::count(states.begin(), states.end(), vertically_) > 0 &&
                    std::count(states.begin(), states.end(), horizontally_) > 0;
    if (!maximized || !is)
      return is == maximized;
    const auto area = ReadNumbers(root_, "_NET_WORKAREA");
    const std::array<int, 4> bounds = ReadBounds();
    return std::equal(bounds.begin(), bounds.end(), area.begin());
  }

  const std::unique_ptr<Display, decltype(&XCloseDisplay)> display_;
  const Window root_;
  const Window window_;
  const Window helper_;
  const Atom vertically_ = Named("_NET_WM_STATE_MAXIMIZED_VERT");
  const Atom horizontally_ = Named("_NET_WM_STATE_MAXIMIZED_HORZ");
  int sent_ = 0;
};

class ServiceClient {
 public:
  ServiceClient()
      : client_(*Client::Connect(loop_, std::getenv("WEB_BROWSER_SOCKET"))),
        windows_(client_.get()) {
    id_.set_value(1);
  }

  void SetBounds(const std::array<int, 4>& bounds) {
    rpc::WindowBounds request;
    *request.mutable_browser_id() = id_;
    request.mutable_bounds()->set_x(bounds[0]);
    request.mutable_bounds()->set_y(bounds[1]);
    request.mutable_bounds()->set_width(bounds[2]);
    request.mutable_bounds()->set_height(bounds[3]);
    ClientController controller;
    windows_.SetBounds(&controller, &request, &nothing_, nullptr);
    ABSL_CHECK(!controller.Failed()) << controller.ErrorText();
  }

  void SetMaximized(bool maximized) {
    ClientController controller;
    if (maximized)
      windows_.Maximize(&controller, &id_, &nothing_, nullptr);
    else
      windows_.Restore(&controller, &id_, &nothing_, nullptr);
    ABSL_CHECK(!controller.Failed()) << controller.ErrorText();
  }

 private:
  rpc::loop::Loop loop_;
  const std::unique_ptr<Client> client_;
  rpc::BrowserWindow_Stub windows_;
  BrowserId id_;
  google::protobuf::Empty nothing_;
};

template <typename Change, typename Undo>
void Measure(benchmark::State& state, const Change& change, const Undo& undo) {
  std::vector<double> microseconds;
  for (auto iteration : state) {
    const Clock::time_point start = Clock::now();
    change();
    const std::chrono::duration<double> took = Clock::now() - start;
    state.SetIterationTime(took.count());
    microseconds.push_back(took.count() * 1e6);
    undo();
  }
  std::sort(microseconds.begin(), microseconds.end());
  state.counters["least"] = microseconds.front();
  state.counters["median"] = microseconds[microseconds.size() / 2];
}

template <typename Client>
void SetBounds(benchmark::State& state) {
  Client client;
  Measure(
      state, [&] { client.SetBounds(kBounds[0]); },
      [&] { client.SetBounds(kBounds[1]); });
}

template <typename Client>
void Maximize(benchmark::State& state) {
  Client client;
  Measure(
      state, [&] { client.SetMaximized(true); },
      [&] { client.SetMaximized(false); });
}

BENCHMARK(SetBounds<BareClient>)->UseManualTime()->Iterations(200);
BENCHMARK(SetBounds<ServiceClient>)->UseManualTime()->Iterations(200);
BENCHMARK(Maximize<BareClient>)->UseManualTime()->Iterations(200);
BENCHMARK(Maximize<ServiceClient>)->UseManualTime()->Iterations(200);

}  // namespace
