// Reads and writes properties of windows that may be gone.
//
// Sequence: the connection's.

#ifndef EXAMPLES_WEB_BROWSER_X11_PROPERTIES_H_
#define EXAMPLES_WEB_BROWSER_X11_PROPERTIES_H_

#include <optional>
#include <string>
#include <vector>

#include "examples/web_browser/x11/x11_types.h"

namespace web_browser::x11 {

// The 32-bit values of a property, whatever its type is called; empty if the
// window has none of that name. No value if there is no such window.
std::optional<std::vector<unsigned long>> ReadNumbers(Connection* connection,
                                                      WindowId window,
                                                      AtomId property);

// The first of them; no value if there is none.
std::optional<unsigned long> ReadNumber(Connection* connection,
                                        WindowId window,
                                        AtomId property);

// The bytes of a text; empty if the window has none of that name, or is gone.
std::string ReadText(Connection* connection, WindowId window, AtomId property);

// False if there is no such window.
bool WriteNumbers(Connection* connection,
                  WindowId window,
                  AtomId property,
                  AtomId type,
                  const std::vector<unsigned long>& values);

}  // namespace web_browser::x11

#endif  // EXAMPLES_WEB_BROWSER_X11_PROPERTIES_H_
