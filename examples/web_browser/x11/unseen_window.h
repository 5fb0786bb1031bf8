// A window of one pixel that is never shown: for what a program tells itself by
// way of the server.
//
// Ownership: the connection stays the caller's and must outlive this; the
// window is this object's.
//
// Sequence: the one that uses the connection.

#ifndef EXAMPLES_WEB_BROWSER_X11_UNSEEN_WINDOW_H_
#define EXAMPLES_WEB_BROWSER_X11_UNSEEN_WINDOW_H_

#include "examples/web_browser/x11/x11_types.h"

namespace web_browser::x11 {

class UnseenWindow {
 public:
  // `events` is the mask of the events that are told of it.
  UnseenWindow(Connection* connection, long events);
  UnseenWindow(const UnseenWindow&) = delete;
  UnseenWindow& operator=(const UnseenWindow&) = delete;
  ~UnseenWindow();

  WindowId id() const { return id_; }

 private:
  Connection* const connection_;
  const WindowId id_;
};

}  // namespace web_browser::x11

#endif  // EXAMPLES_WEB_BROWSER_X11_UNSEEN_WINDOW_H_
