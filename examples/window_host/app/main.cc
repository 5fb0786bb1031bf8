// Serves the windows of a desktop in memory to clients on a Unix socket.

#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <optional>
#include <string>

#include "absl/strings/str_cat.h"
#include "core/common/rpc/loop/loop.h"
#include "core/common/rpc/reflection/reflection_service.h"
#include "core/common/rpc/serving/limits.h"
#include "core/common/rpc/status/status_service.h"
#include "core/common/rpc/transport/server.h"
#include "examples/window_host/app/call_logger.h"
#include "examples/window_host/app/console.h"
#include "examples/window_host/service/browser.h"
#include "examples/window_host/service/window_service.h"
#include "examples/window_host/windows/memory_desktop.h"
#include "tools/cli/flags.h"
#include "tools/cli/limit_flags.h"
#include "tools/cli/line_reader.h"
#include "tools/cli/line_writer.h"
#include "tools/cli/printable.h"
#include "tools/cli/record_writer.h"
#include "tools/cli/socket_path.h"
#include "tools/cli/stop_signals.h"

namespace window_host {
namespace {

// The exit code of a wrong command line, as windowctl's.
constexpr int kUsage = 2;

constexpr int kMaximumWindows = 1000;

constexpr char kHelp[] =
    R"(window_host: serves the windows of a desktop in memory.

Flags:
  --socket PATH             where to listen; default:
                            ${XDG_RUNTIME_DIR:-/tmp/torvane-UID}/window_host.sock
  --windows N               how many windows to open, 0 to 1000; default: 3
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

struct Options {
  std::string socket = cli::DefaultSocketPath();
  int windows = 3;
  std::chrono::milliseconds answer_timeout{5'000};
  rpc::serving::Limits limits;
};

int Fail(int exit_code, std::string_view text) {
  cli::LineWriter(STDERR_FILENO, "line")
      .Write(cli::PrintableLines(absl::StrCat("window_host: ", text)));
  return exit_code;
}

class Host {
 public:
  explicit Host(const Options& options)
      : options_(options),
        desktop_(loop_, Display{}),
        browser_(loop_, desktop_, options.answer_timeout),
        console_(desktop_,
                 browser_,
                 [this](const std::string& line) { output_.Write(line); }),
        service_(MakeWindowService(desktop_, browser_)),
        logger_(*service_),
        status_([this] { return server_.Report(); }),
        reflection_([this] { return server_.Services(); }),
        server_(loop_, {.limits = options.limits}) {
    for (int i = 0; i < options.windows; ++i)
      desktop_.Open();
    server_.AddService(&logger_);
    server_.AddService(&status_);
    server_.AddService(&reflection_);
  }

  int Run() {
    // Watched before there is a socket, which else would stay when a signal
    // comes right after.
    stop_signals_.emplace(loop_, [this] { Stop(); });
    absl::Status listening = cli::MakeSocketFolder(options_.socket);
    if (listening.ok())
      listening = server_.Listen(options_.socket);
    if (!listening.ok())
      return Fail(EXIT_FAILURE, listening.message());
    input_.emplace(
        loop_, STDIN_FILENO,
        [this](const std::optional<std::string>& line) { OnInput(line); });
    output_.Write(absl::StrCat("window_host: ready at ", options_.socket));
    loop_.RunUntil([this] { return IsOver(); });
    return EXIT_SUCCESS;
  }

 private:
  void OnInput(const std::optional<std::string>& line) {
    if (!line)
      return;
    if (cli::LineReader::IsTooLong(*line)) {
      return output_.Write(absl::StrCat("A line of more than ",
                                        cli::LineReader::kMaxLineBytes,
                                        " bytes is not read."));
    }
    console_.Obey(*line);
  }

  // Closes the windows first, so that clients hear of it before the server says
  // goodbye.
  void Stop() {
    input_.reset();
    browser_.Shutdown([this] {
      server_.Stop();
      stopped_ = true;
    });
  }

  // Whether the host has stopped, and the server has ended all that its clients
  // had under way.
  bool IsOver() const {
    return stopped_ && server_.counters().connections_now == 0;
  }

  const Options options_;
  cli::LineWriter output_{STDOUT_FILENO, "line"};
  rpc::loop::Loop loop_;
  MemoryDesktop desktop_;
  Browser browser_;
  Console console_;
  const std::unique_ptr<rpc::BrowserWindowRpc> service_;
  CallLogger logger_;
  rpc::status::StatusService status_;
  rpc::reflection::ReflectionService reflection_;
  rpc::transport::Server server_;
  std::optional<cli::StopSignals> stop_signals_;
  std::optional<cli::LineReader> input_;
  // Whether the server has been told to stop.
  bool stopped_ = false;
};

int Main(int argc, char** argv) {
  Options options;
  bool help = false;
  cli::Flags flags;
  flags.AddSwitch("help", &help);
  flags.AddText("socket", &options.socket);
  flags.AddInteger("windows", 0, kMaximumWindows, &options.windows);
  flags.AddSeconds("answer-timeout", &options.answer_timeout);
  cli::AddLimitFlags(flags, &options.limits);
  const auto arguments = flags.Parse(argc, argv);
  if (!arguments.ok()) {
    return Fail(kUsage, absl::StrCat(arguments.status().message(),
                                     " 'window_host --help' says more."));
  }
  if (help) {
    std::printf(kHelp, cli::LimitHelp().c_str());
    return EXIT_SUCCESS;
  }
  if (!arguments->empty())
    return Fail(kUsage,
                "There are only flags. 'window_host --help' lists them.");
  if (absl::Status fault = cli::CheckLimits(options.limits); !fault.ok())
    return Fail(kUsage, fault.message());
  // A reader of the output that goes must not end the host.
  signal(SIGPIPE, SIG_IGN);
  // Nor must a file that takes no more of it.
  signal(SIGXFSZ, SIG_IGN);
  cli::RecordWriter& records = cli::WriteRecordsTo(STDERR_FILENO);
  Host host(options);
  const int exit_code = host.Run();
  records.SayWhatWasLeftOut();
  // Not by return, which would destroy the host: freeing the memory of all
  // windows and clients piece by piece takes longer than the end of a process.
  std::exit(exit_code);
}

}  // namespace
}  // namespace window_host

int main(int argc, char** argv) {
  return window_host::Main(argc, argv);
}
