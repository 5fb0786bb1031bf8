#include <cstdio>

#include "rpc/browser/browser_window.pb.h"
#include "tools/rpcctl/method_table.h"
#include "tools/windowctl/commands.h"

namespace windowctl {

rpcctl::ExitCode Methods(rpcctl::Session&, const rpcctl::Arguments& arguments) {
  if (!arguments.empty())
    return rpcctl::Fail(rpcctl::kUsage, "'methods' takes no arguments.");
  const std::string list =
      rpcctl::ListMethods(*rpc::BrowserWindow::descriptor());
  std::fputs(list.c_str(), stdout);
  return rpcctl::kSuccess;
}

}  // namespace windowctl
