// A question to the server whose answer is on its way. Questions that are all
// asked before the first answer is taken cost one round trip together:
//
//   Query geometry(xcb, xcb_get_geometry(xcb, window),
//   &xcb_get_geometry_reply); Query state(xcb, xcb_get_property(xcb, ...),
//   &xcb_get_property_reply); const auto bounds = geometry.Take(); const auto
//   numbers = state.Take();
//
// It goes through XCB on Xlib's own connection, since Xlib itself waits for
// each answer before the next question. Errors of X, such as that the window is
// gone, come back as no answer and never reach Xlib's handler.
//
// Ownership: an answer that nobody takes is thrown away. The connection must
// outlive the query.
//
// Sequence: the connection's.

#ifndef EXAMPLES_WEB_BROWSER_X11_QUERY_H_
#define EXAMPLES_WEB_BROWSER_X11_QUERY_H_

#include <xcb/xcb.h>

#include <cstdlib>
#include <memory>
#include <utility>

namespace web_browser::x11 {

// What XCB returns belongs to who gets it.
struct Freer {
  void operator()(void* memory) const { std::free(memory); }
};

template <typename Cookie, typename Reply>
class Query {
 public:
  using Receive = Reply* (*)(xcb_connection_t*, Cookie, xcb_generic_error_t**);
  // `cookie` is of the request, which has been made just before.
  Query(xcb_connection_t* connection, Cookie cookie, Receive receive)
      : connection_(connection), cookie_(cookie), receive_(receive) {}
  Query(const Query&) = delete;
  Query& operator=(const Query&) = delete;
  ~Query() {
    if (receive_ != nullptr) {
      xcb_discard_reply(connection_, cookie_.sequence);
    }
  }

  // Waits for the answer; null if there is none. Once.
  std::unique_ptr<Reply, Freer> Take() {
    xcb_generic_error_t* error = nullptr;
    std::unique_ptr<Reply, Freer> reply(
        std::exchange(receive_, nullptr)(connection_, cookie_, &error));
    std::free(error);
    return reply;
  }

 private:
  xcb_connection_t* const connection_;
  const Cookie cookie_;
  Receive receive_;
};

// Whether the request has gone well, which the server is waited for: false
// where the window that it was about is gone. It must be one whose name ends
// with
// "_checked".
inline bool Succeeds(xcb_connection_t* connection, xcb_void_cookie_t cookie) {
  const std::unique_ptr<xcb_generic_error_t, Freer> error(
      xcb_request_check(connection, cookie));
  return error == nullptr;
}

// Lets an error of a request go by unnoticed: the window that it was about may
// be gone. The request must be one whose name ends with "_checked".
inline void IgnoreError(xcb_connection_t* connection,
                        xcb_void_cookie_t cookie) {
  xcb_discard_reply(connection, cookie.sequence);
}

}  // namespace web_browser::x11

#endif  // EXAMPLES_WEB_BROWSER_X11_QUERY_H_
