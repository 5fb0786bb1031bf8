// A small web browser, whose windows clients on a Unix socket drive.

#include <gtk/gtk.h>
#include <sys/resource.h>

#include <algorithm>
#include <cstdlib>
#include <optional>
#include <string>

#include "absl/strings/str_cat.h"
#include "core/common/rpc/loop/glib_main_loop.h"
#include "core/common/rpc/loop/loop.h"
#include "examples/web_browser/desktop/display_loss.h"
#include "examples/web_browser/desktop/real_desktop.h"
#include "examples/window_host/app/host.h"
#include "examples/window_host/app/host_options.h"

namespace web_browser {
namespace {

using window_host::Host;
using window_host::HostOptions;

constexpr char kHelp[] =
    R"(web_browser [URL...]: a small web browser, whose windows clients drive.

Each URL opens in a window of its own. It needs an X11 display with a window
manager: $DISPLAY.

Flags:
  --socket PATH             where to listen; default:
                            ${XDG_RUNTIME_DIR:-/tmp/torvane-UID}/window_host.sock
  --windows N               how many windows to open, 0 to 1000; default: one
                            for each URL, or 1
  --max-windows N           how many windows may be open when a client opens
                            another one, 0 to 1000; default: 1000
  --answer-timeout SECONDS  how long a client may take to answer a question
                            before the browser goes on without it; default: 5
  -h, --help                prints this

Limits, each named and counted by 'windowctl status' when it bites:
%s
On standard input a person can play the user; 'help' there says how. A line of
more than 65536 bytes is not read.

The browser runs until SIGINT, SIGTERM, SIGQUIT or SIGHUP, or until its display
goes. It then closes the windows, says goodbye to its clients and removes its
socket. A second signal ends it at once. Where SIGHUP is ignored at the start,
as with nohup, it stays ignored.

It records each call about windows, and what it has to refuse, on standard
error. It never waits for somebody to read that or its standard output: what
cannot be written is dropped, and the next line says how much that was. A line
has at most 4096 bytes. Of each kind of warning at most 20 are written in a
second.

Exit status: 0 after a signal or when the display has gone, 1 when it cannot
begin, 2 wrong usage; 128 and the signal's number, as a shell shows it, after a
second signal.
)";

// Every page's process takes some descriptors of ours.
void AllowManyDescriptors() {
  rlimit limit = {};
  if (getrlimit(RLIMIT_NOFILE, &limit) != 0)
    return;
  limit.rlim_cur = limit.rlim_max;
  setrlimit(RLIMIT_NOFILE, &limit);
}

class WebBrowser {
 public:
  explicit WebBrowser(const HostOptions& options)
      : options_(options),
        main_loop_(loop_),
        desktop_(loop_),
        host_(loop_, desktop_, options) {}

  // Returns the exit status.
  int Run() {
    HandleDisplayLoss([this] {
      display_is_lost_ = true;
      loop_.Stop();
    });
    OpenNext();
    main_loop_.Run();
    if (!failure_.ok())
      return Fail(options_, EXIT_FAILURE, failure_.message());
    if (display_is_lost_) {
      desktop_.Lose();
      host_.Stop();
    }
    // What is left to do for clients needs no display.
    loop_.RunUntil([this] { return host_.IsOver(); });
    return EXIT_SUCCESS;
  }

 private:
  // Opens one window after the other, and then serves them.
  void OpenNext() {
    const size_t windows = std::max(options_.arguments.size(),
                                    static_cast<size_t>(options_.windows));
    if (opened_ == windows)
      return Serve();
    const std::string url = opened_ < options_.arguments.size()
                                ? options_.arguments[opened_]
                                : std::string();
    ++opened_;
    desktop_.Open({.url = url}, [this](const absl::StatusOr<int64_t>& id) {
      if (id.ok())
        OpenNext();
      else
        GiveUp(id.status());
    });
  }

  void Serve() {
    absl::Status serving = host_.Serve([this] { loop_.Stop(); });
    if (!serving.ok())
      GiveUp(serving);
  }

  void GiveUp(const absl::Status& failure) {
    failure_ = failure;
    loop_.Stop();
  }

  const HostOptions options_;
  rpc::loop::Loop loop_;
  rpc::loop::GlibMainLoop main_loop_;
  RealDesktop desktop_;
  Host host_;
  size_t opened_ = 0;
  absl::Status failure_;
  bool display_is_lost_ = false;
};

int Main(int argc, char** argv) {
  HostOptions options;
  options.program = "web_browser";
  options.takes_arguments = true;
  constexpr int kNotGiven = -1;
  options.windows = kNotGiven;
  if (auto exit_code = ReadCommandLine(argc, argv, kHelp, &options))
    return *exit_code;
  if (options.windows == kNotGiven)
    options.windows = options.arguments.empty() ? 1 : 0;
  cli::RecordWriter& records = window_host::PrepareOutput();
  AllowManyDescriptors();
  gdk_set_allowed_backends("x11");
  if (!gtk_init_check(nullptr, nullptr)) {
    return Fail(options, EXIT_FAILURE,
                "There is no X11 display: is $DISPLAY set?");
  }
  // What has changed is to be seen at once, whole.
  g_object_set(gtk_settings_get_default(), "gtk-enable-animations", FALSE,
               nullptr);
  WebBrowser browser(options);
  const int exit_code = browser.Run();
  records.SayWhatWasLeftOut();
  // Not by return, which would destroy the browser: freeing all that it holds
  // takes longer than the end of a process, and may need a display.
  std::exit(exit_code);
}

}  // namespace
}  // namespace web_browser

int main(int argc, char** argv) {
  return web_browser::Main(argc, argv);
}
