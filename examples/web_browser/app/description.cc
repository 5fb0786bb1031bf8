#include "examples/web_browser/app/description.h"

#include "absl/strings/str_cat.h"
#include "examples/window_host/app/description.h"

namespace web_browser {

cli::ProgramDescription DescribeWebBrowser() {
  cli::ProgramDescription program =
      window_host::DescribeHost("web_browser", "one for each URL, or 1");
  program.summary = "a small web browser, whose windows clients drive";
  program.arguments = "[URL...]";
  program.flags.insert(
      program.flags.end() - 2,
      {"desktop-timeout", "SECONDS",
       "how long the window manager may take to confirm a step of a change "
       "before it counts as hanging, and the change fails; default: 5"});
  program.details = absl::StrCat(
      "Each URL opens in a window of its own. It needs an X11 display with a "
      "window manager, $DISPLAY; when that goes, it ends as after a "
      "signal.\n\n",
      program.details);
  program.exit_statuses[0].meaning = "after a signal, or without its display";
  program.exit_statuses[1].meaning = "when it cannot begin";
  return program;
}

}  // namespace web_browser
