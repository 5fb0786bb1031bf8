// Catches the errors of X that requests about windows of others can have: the
// window may be gone by the time the server reads the request, and Xlib ends a
// process that does not catch that.
//
//   ErrorTrap trap(connection);
//   XGetGeometry(...);
//   if (trap.HasCaught()) ...
//
// Only errors of requests that are made while the trap is there are caught.
// Traps may be nested; the inner one catches.
//
// Sequence: the connection's. Xlib has one error handler for a process: no
// other thread may use Xlib meanwhile.
//
// Failure: none.

#ifndef EXAMPLES_WEB_BROWSER_X11_ERROR_TRAP_H_
#define EXAMPLES_WEB_BROWSER_X11_ERROR_TRAP_H_

#include "examples/web_browser/x11/x11_types.h"
#include "examples/web_browser/x11/xlib.h"

namespace web_browser::x11 {

class ErrorTrap {
 public:
  explicit ErrorTrap(Connection* connection);
  ErrorTrap(const ErrorTrap&) = delete;
  ErrorTrap& operator=(const ErrorTrap&) = delete;
  ~ErrorTrap();

  // Waits for the server, unless it has answered the last request already.
  bool HasCaught();

 private:
  static int Handle(Connection* connection, XErrorEvent* error);

  void Settle() const;

  Connection* const connection_;
  const unsigned long first_request_;
  const XErrorHandler former_handler_;
  ErrorTrap* const outer_;
  bool has_caught_ = false;
};

}  // namespace web_browser::x11

#endif  // EXAMPLES_WEB_BROWSER_X11_ERROR_TRAP_H_
