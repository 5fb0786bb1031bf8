// Lets the program end in good order when its display goes away.
//
// By default GDK ends the process at once when its connection to the X server
// breaks. After
//
//   HandleDisplayLoss([&](FoundBy found_by) {
//     if (found_by == FoundBy::kToolkit)
//       EndTheProgram();
//     loop.Stop();
//   });
//
// the function is called instead, once, within whatever operation has found
// the connection broken. Nothing that uses the display may be begun any more.
// If the function returns, so does that operation, with something or other: our
// own code can live with that. GDK can't: it takes what was never filled in for
// the position of the pointer, say, and ends with a fault in memory.
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

enum class FoundBy {
  // A task of the loop, or GLib while it looks for something to do.
  kProgram,
  // A callback of GLib's, such as GTK's for events and for painting.
  kToolkit
};

void HandleDisplayLoss(std::function<void(FoundBy)> on_loss);

}  // namespace web_browser

#endif  // EXAMPLES_WEB_BROWSER_DESKTOP_DISPLAY_LOSS_H_
