// The only header that includes Xlib and its extensions.
//
// Xlib defines macros that are names elsewhere: absl::Status and absl::None
// among them. They are taken away again here; what the code needs of them is
// written out: 0 for None, 1 for True.

#ifndef EXAMPLES_WEB_BROWSER_X11_XLIB_H_
#define EXAMPLES_WEB_BROWSER_X11_XLIB_H_

#include <X11/Xlib.h>
// Behind Xlib.h, whose types it needs.
#include <X11/Xatom.h>
#include <X11/Xlib-xcb.h>
#include <X11/Xutil.h>
#include <X11/extensions/Xrandr.h>

#undef Above
#undef Always
#undef Below
#undef Bool
#undef Complex
#undef CurrentTime
#undef False
#undef None
#undef Status
#undef Success
#undef True

#endif  // EXAMPLES_WEB_BROWSER_X11_XLIB_H_
