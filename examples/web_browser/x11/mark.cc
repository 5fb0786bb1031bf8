#include "examples/web_browser/x11/mark.h"

#include "examples/web_browser/x11/xlib.h"

namespace web_browser::x11 {
namespace {

// Any would do: nobody reads it.
constexpr AtomId kProperty = XA_WM_NAME;

}  // namespace

Mark::Mark(Connection* connection)
    : connection_(connection), window_(connection, PropertyChangeMask) {}

uint64_t Mark::Send() {
  XChangeProperty(connection_, window_.id(), kProperty, XA_STRING, /*bits=*/8,
                  PropModeReplace, /*data=*/nullptr, /*length=*/0);
  XFlush(connection_);
  return ++sent_;
}

bool Mark::OnEvent(const Event& event) {
  if (event.type != PropertyNotify || event.xproperty.window != window_.id()) {
    return false;
  }
  ++passed_;
  return true;
}

}  // namespace web_browser::x11
