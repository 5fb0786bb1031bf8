// Simulates the user in front of the windows: each line is something that the
// user does.
//
//   window_host::Console console(windows, browser, print);
//   console.Obey("close 1");     // prints "Window 1 is closed."
//
// Ownership: windows and browser are the caller's and must outlive the console,
// which must outlive the last task of the sequence.
//
// Sequence: that of the browser. When clients have to be asked first, the
// outcome is printed later than Obey() returns.
//
// Failure: errors are printed.
//
// What clients have put into it, such as a title, is printed in printable
// characters only (tools/cli/printable.h).

#ifndef EXAMPLES_WINDOW_HOST_APP_CONSOLE_H_
#define EXAMPLES_WINDOW_HOST_APP_CONSOLE_H_

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "examples/window_host/service/browser.h"
#include "examples/window_host/windows/window_system.h"

namespace window_host {

class Console {
 public:
  // `print` gets whole lines without their break; for "help" several at once.
  using Print = std::function<void(const std::string& line)>;

  Console(WindowSystem& windows, Browser& browser, Print print);

  // An empty line does nothing.
  void Obey(std::string_view line);

 private:
  using Words = std::vector<std::string>;

  // Prints a line, of printable characters.
  void Say(std::string_view text) const;

  void List();
  void Close(int64_t id);
  void Execute(int64_t id, const std::string& command);
  void OpenMenu(int64_t id, int x, int y);

  // False when the words are not understood.
  bool ObeyAboutWindow(const Words& words);

  WindowSystem& windows_;
  Browser& browser_;
  const Print print_;
};

}  // namespace window_host

#endif  // EXAMPLES_WINDOW_HOST_APP_CONSOLE_H_
