// Serves the windows of a desktop in memory to clients on a Unix socket.

#include <cstdlib>
#include <optional>

#include "core/common/rpc/loop/loop.h"
#include "examples/window_host/app/host.h"
#include "examples/window_host/app/host_options.h"
#include "examples/window_host/windows/memory_desktop.h"

namespace window_host {
namespace {

constexpr char kHelp[] =
    R"(window_host: serves the windows of a desktop in memory.

Flags:
  --socket PATH             where to listen; default:
                            ${XDG_RUNTIME_DIR:-/tmp/torvane-UID}/window_host.sock
  --windows N               how many windows to open, 0 to 1000; default: 3
  --max-windows N           how many windows may be open when a client opens
                            another one, 0 to 1000; default: 1000
  --answer-timeout SECONDS  how long a client may take to answer a question
                            before the host goes on without it; default: 5
  -h, --help                prints this

Limits, each named and counted by 'windowctl status' when it bites:
%s
On standard input a person can play the user; 'help' there says how. A line of
more than 65536 bytes is not read.

The host runs until SIGINT, SIGTERM, SIGQUIT or SIGHUP. It then closes the
windows, says goodbye to its clients and removes its socket. A second signal
ends it at once. Where SIGHUP is ignored at the start, as with nohup, it stays
ignored.

It records each call about windows, and what it has to refuse, on standard
error. It never waits for somebody to read that or its standard output: what
cannot be written is dropped, and the next line says how much that was. A line
has at most 4096 bytes. Of each kind of warning at most 20 are written in a
second.

Exit status: 0 after a signal, 1 when it cannot listen, 2 wrong usage; 128 and
the signal's number, as a shell shows it, after a second signal.
)";

int Main(int argc, char** argv) {
  HostOptions options;
  options.program = "window_host";
  options.windows = 3;
  if (auto exit_code = ReadCommandLine(argc, argv, kHelp, &options))
    return *exit_code;
  cli::RecordWriter& records = PrepareOutput();
  rpc::loop::Loop loop;
  MemoryDesktop desktop(loop, Display{});
  for (int i = 0; i < options.windows; ++i)
    desktop.Open();
  Host host(loop, desktop, options);
  if (absl::Status serving = host.Serve(); !serving.ok())
    return Fail(options, EXIT_FAILURE, serving.message());
  loop.RunUntil([&] { return host.IsOver(); });
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
