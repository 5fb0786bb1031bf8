// Reads and writes properties of windows that may be gone.
//
// Sequence: the connection's.

#ifndef EXAMPLES_WEB_BROWSER_X11_PROPERTIES_H_
#define EXAMPLES_WEB_BROWSER_X11_PROPERTIES_H_

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "examples/web_browser/x11/query.h"
#include "examples/web_browser/x11/x11_types.h"

namespace web_browser::x11 {

// A property that has been asked for. One of these functions is called, once.
class PropertyQuery {
 public:
  PropertyQuery(Connection* connection, WindowId window, AtomId property);

  // The 32-bit values, whatever their type is called; empty if the window has
  // none of that name. No value if there is no such window.
  std::optional<std::vector<uint32_t>> Numbers();
  // The first of them; no value if there is none.
  std::optional<uint32_t> Number();
  // The bytes of a text; empty if the window has none of that name, or is gone.
  std::string Text();

 private:
  Query<xcb_get_property_cookie_t, xcb_get_property_reply_t> query_;
};

// False if there is no such window.
bool WriteNumbers(Connection* connection,
                  WindowId window,
                  AtomId property,
                  AtomId type,
                  const std::vector<uint32_t>& values);

// A text in UTF-8. False if there is no such window.
bool WriteText(Connection* connection,
               WindowId window,
               AtomId property,
               AtomId type,
               std::string_view text);

}  // namespace web_browser::x11

#endif  // EXAMPLES_WEB_BROWSER_X11_PROPERTIES_H_
