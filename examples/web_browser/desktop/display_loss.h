// Lets the program end in good order when its display goes away.
//
// By default GDK ends the process at once when its connection to the X server
// breaks. After
//
//   HandleDisplayLoss([&] { loop.Stop(); });
//
// the function is called instead, once, within whatever operation has found
// the connection broken. That operation returns something; nothing that uses
// the display may be begun any more.
//
// Ownership: of the function, for ever.
//
// Sequence: the thread of GTK, after GTK has been initialised. Once.
//
// Failure: none.

#ifndef EXAMPLES_WEB_BROWSER_DESKTOP_DISPLAY_LOSS_H_
#define EXAMPLES_WEB_BROWSER_DESKTOP_DISPLAY_LOSS_H_

#include <functional>

namespace web_browser {

void HandleDisplayLoss(std::function<void()> on_loss);

}  // namespace web_browser

#endif  // EXAMPLES_WEB_BROWSER_DESKTOP_DISPLAY_LOSS_H_
