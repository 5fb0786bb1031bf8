// The names of Xlib's types, for headers, which do not include Xlib: its macros
// would reach whoever includes them (xlib.h).

#ifndef EXAMPLES_WEB_BROWSER_X11_X11_TYPES_H_
#define EXAMPLES_WEB_BROWSER_X11_X11_TYPES_H_

struct _XDisplay;
union _XEvent;
struct xcb_connection_t;

namespace web_browser::x11 {

using Connection = ::_XDisplay;
using XcbConnection = ::xcb_connection_t;
using Event = ::_XEvent;
// What Xlib calls a Window.
using WindowId = unsigned long;
using AtomId = unsigned long;

}  // namespace web_browser::x11

#endif  // EXAMPLES_WEB_BROWSER_X11_X11_TYPES_H_
