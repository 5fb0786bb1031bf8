#include "examples/web_browser/x11/error_trap.h"

namespace web_browser::x11 {
namespace {

// Xlib passes nothing to its handler by which the trap could be found.
ErrorTrap* innermost = nullptr;

}  // namespace

ErrorTrap::ErrorTrap(Connection* connection)
    : connection_(connection),
      first_request_(XNextRequest(connection)),
      former_handler_(XSetErrorHandler(&ErrorTrap::Handle)),
      outer_(innermost) {
  innermost = this;
}

ErrorTrap::~ErrorTrap() {
  Settle();
  innermost = outer_;
  XSetErrorHandler(former_handler_);
}

bool ErrorTrap::HasCaught() {
  Settle();
  return has_caught_;
}

void ErrorTrap::Settle() const {
  if (XLastKnownRequestProcessed(connection_) + 1 !=
      XNextRequest(connection_)) {
    XSync(connection_, /*discard=*/0);
  }
}

int ErrorTrap::Handle(Connection* connection, XErrorEvent* error) {
  ErrorTrap& trap = *innermost;
  if (connection == trap.connection_ && error->serial >= trap.first_request_) {
    trap.has_caught_ = true;
    return 0;
  }
  return trap.former_handler_(connection, error);
}

}  // namespace web_browser::x11
