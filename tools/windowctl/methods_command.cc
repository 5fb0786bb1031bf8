#include <cstdio>

#include "rpc/browser/browser_window.pb.h"
#include "tools/windowctl/commands.h"
#include "tools/windowctl/method_table.h"

namespace windowctl {

ExitCode Methods(const Options&, const Arguments& arguments) {
  if (!arguments.empty())
    return Fail(kUsage, "'methods' takes no arguments.");
  const std::string list = ListMethods(*rpc::BrowserWindow::descriptor());
  std::fputs(list.c_str(), stdout);
  return kSuccess;
}

}  // namespace windowctl
