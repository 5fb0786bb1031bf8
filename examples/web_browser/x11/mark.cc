#include "examples/web_browser/x11/mark.h"

#include "examples/web_browser/x11/xlib.h"

namespace web_browser::x11 {
namespace {

// Any would do: nobody reads it.
constexpr AtomId kProperty = XA_WM_NAME;

}  // namespace

Mark::Mark(Connection* connection)
    : connection_(connection),
      window_(XCreateSimpleWindow(connection,
                                  DefaultRootWindow(connection),
                                  /*x=*/0,
                                  /*y=*/0,
                                  /*width=*/1,
                                  /*height=*/1,
                                  /*border_width=*/0,
                                  /*border=*/0,
                                  /*background=*/0)) {
  XSelectInput(connection_, window_, PropertyChangeMask);
}

Mark::~Mark() {
  XDestroyWindow(connection_, window_);
}

uint64_t Mark::Send() {
  XChangeProperty(connection_, window_, kProperty, XA_STRING, /*bits=*/8,
                  PropModeReplace, /*data=*/nullptr, /*length=*/0);
  XFlush(connection_);
  return ++sent_;
}

bool Mark::OnEvent(const Event& event) {
  if (event.type != PropertyNotify || event.xproperty.window != window_) {
    return false;
  }
  ++passed_;
  return true;
}

}  // namespace web_browser::x11
