// Tells when the window manager has come past a request, without sleeping.
//
// A window manager has all requests to map and move windows redirected to
// itself, in the order in which they and its client messages were sent. So
// behind a request to it this moves a window of its own:
//
//   XSendEvent(...);                   the request
//   const uint64_t n = fence.Send();   behind it, on the same connection
//   ...
//   if (fence.OnEvent(event) && fence.passed() >= n) ...
//
// The window manager lets that happen, and the server tells: then it has read
// the request, too, and has done about it what it wants to do at once. Without
// a window manager the server does it, and tells at once.
//
// The window is never shown. Its place is the number of the fence, x being the
// lower digit and y the higher. Window managers may merge moves: a later number
// stands for all before it.
//
// Ownership: the connection stays the caller's and must outlive this; the
// window is this object's. One fence is enough for a program.
//
// Sequence: the one that uses the connection.
//
// Failure: none. A window manager that hangs lets no fence pass.

#ifndef EXAMPLES_WEB_BROWSER_X11_FENCE_H_
#define EXAMPLES_WEB_BROWSER_X11_FENCE_H_

#include <cstdint>

#include "examples/web_browser/x11/unseen_window.h"
#include "examples/web_browser/x11/x11_types.h"

namespace web_browser::x11 {

class Fence {
 public:
  explicit Fence(Connection* connection);
  Fence(const Fence&) = delete;
  Fence& operator=(const Fence&) = delete;

  // Sends one, and what waits to be sent before it. Numbers count from 1.
  uint64_t Send();

  // Takes note of an event. True if one or more fences have passed by it.
  bool OnEvent(const Event& event);

  // The last that has passed; 0 before the first.
  uint64_t passed() const { return passed_; }

 private:
  Connection* const connection_;
  const UnseenWindow window_;
  uint64_t sent_ = 0;
  uint64_t passed_ = 0;
};

}  // namespace web_browser::x11

#endif  // EXAMPLES_WEB_BROWSER_X11_FENCE_H_
