// Serves the windows of a desktop in memory to clients on a Unix socket.

#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <initializer_list>
#include <memory>
#include <optional>
#include <string>

#include "absl/strings/str_cat.h"
#include "core/common/rpc/loop/loop.h"
#include "core/common/rpc/loop/signal_watch.h"
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
#include "tools/cli/socket_path.h"

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
On standard input a person can play the user; 'help' there says how. The host
runs until SIGINT or SIGTERM. It records each call about windows on standard
error.

Exit status: 0 after a signal, 1 when it cannot listen, 2 wrong usage.
)";

struct Options {
  std::string socket = cli::DefaultSocketPath();
  int windows = 3;
  std::chrono::milliseconds answer_timeout{5'000};
  rpc::serving::Limits limits;
};

int Fail(int exit_code, std::string_view text) {
  std::fputs(absl::StrCat("window_host: ", text, "\n").c_str(), stderr);
  return exit_code;
}

// Flushed, since other processes wait for these lines.
void Print(const std::string& line) {
  std::puts(line.c_str());
  std::fflush(stdout);
}

class Host {
 public:
  explicit Host(const Options& options)
      : options_(options),
        desktop_(loop_, Display{}),
        browser_(loop_, desktop_, options.answer_timeout),
        console_(desktop_, browser_, Print),
        service_(MakeWindowService(desktop_, browser_)),
        logger_(*service_),
        status_([this] { return server_.Report(); }),
        server_(loop_, {.limits = options.limits}) {
    for (int i = 0; i < options.windows; ++i)
      desktop_.Open();
    server_.AddService(&logger_);
    server_.AddService(&status_);
  }

  int Run() {
    absl::Status listening = cli::MakeSocketFolder(options_.socket);
    if (listening.ok())
      listening = server_.Listen(options_.socket);
    if (!listening.ok())
      return Fail(EXIT_FAILURE, listening.message());
    stop_signals_.emplace(loop_, std::initializer_list<int>{SIGINT, SIGTERM},
                          [this](int) { Stop(); });
    input_.emplace(loop_, STDIN_FILENO,
                   [this](std::optional<std::string> line) {
                     if (line)
                       console_.Obey(*line);
                   });
    Print(absl::StrCat("window_host: ready at ", options_.socket));
    loop_.Run();
    return EXIT_SUCCESS;
  }

 private:
  // Closes the windows first, so that clients hear of it before the server says
  // goodbye. Signals are no longer watched: a second one ends the process.
  void Stop() {
    stop_signals_.reset();
    input_.reset();
    browser_.Shutdown([this] { server_.Stop(); });
  }

  const Options options_;
  rpc::loop::Loop loop_;
  MemoryDesktop desktop_;
  Browser browser_;
  Console console_;
  const std::unique_ptr<rpc::BrowserWindowRpc> service_;
  CallLogger logger_;
  rpc::status::StatusService status_;
  rpc::transport::Server server_;
  std::optional<rpc::loop::SignalWatch> stop_signals_;
  std::optional<cli::LineReader> input_;
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
  return Host(options).Run();
}

}  // namespace
}  // namespace window_host

int main(int argc, char** argv) {
  return window_host::Main(argc, argv);
}
