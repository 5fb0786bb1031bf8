// Serves the windows of a desktop in memory to clients on a Unix socket.

#include <unistd.h>

#include <cstdlib>
#include <optional>

#include "core/common/rpc/loop/loop.h"
#include "examples/window_host/app/description.h"
#include "examples/window_host/app/host.h"
#include "examples/window_host/app/host_options.h"
#include "examples/window_host/windows/memory_desktop.h"
#include "tools/cli/record_writer.h"

namespace window_host {
namespace {

int Main(int argc, char** argv) {
  HostOptions options;
  options.windows = 3;
  if (auto exit_code =
          ReadCommandLine(argc, argv, DescribeWindowHost(), {}, &options))
    return *exit_code;
  cli::RecordWriter& records = cli::WriteRecordsTo(STDERR_FILENO);
  rpc::loop::Loop loop;
  MemoryDesktop desktop(loop, Display{});
  for (int i = 0; i < options.windows; ++i)
    desktop.Open();
  Host host(loop, desktop, options);
  if (absl::Status serving = host.Serve(); !serving.ok())
    return Fail(options, EXIT_FAILURE, serving.message());
  loop.RunUntil([&] { return host.IsOver(); });
  host.Finish();
  records.SayWhatWasLeftOut();
  // Not by return, which would destroy the host: freeing the memory of all
  // windows and clients piece by piece takes longer than the end of a process.
  std::exit(EXIT_SUCCESS);
}

}  // namespace
}  // namespace window_host

int main(int argc, char** argv) {
  return window_host::Main(argc, argv);
}
