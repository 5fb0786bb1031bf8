#include "examples/web_browser/x11/unseen_window.h"

#include "examples/web_browser/x11/xlib.h"

namespace web_browser::x11 {

UnseenWindow::UnseenWindow(Connection* connection, long events)
    : connection_(connection),
      id_(XCreateSimpleWindow(connection,
                              DefaultRootWindow(connection),
                              /*x=*/0,
                              /*y=*/0,
                              /*width=*/1,
                              /*height=*/1,
                              /*border_width=*/0,
                              /*border=*/0,
                              /*background=*/0)) {
  XSelectInput(connection_, id_, events);
}

UnseenWindow::~UnseenWindow() {
  XDestroyWindow(connection_, id_);
}

}  // namespace web_browser::x11
