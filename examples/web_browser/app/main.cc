// A small web browser, whose windows clients on a Unix socket drive.

#include <gtk/gtk.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <optional>
#include <string>

#include "absl/strings/str_cat.h"
#include "core/common/rpc/loop/glib_main_loop.h"
#include "core/common/rpc/loop/loop.h"
#include "examples/web_browser/app/description.h"
#include "examples/web_browser/desktop/display_loss.h"
#include "examples/web_browser/desktop/real_desktop.h"
#include "examples/window_host/app/host.h"
#include "examples/window_host/app/host_options.h"
#include "tools/cli/flags.h"
#include "tools/cli/record_writer.h"

namespace web_browser {
namespace {

using window_host::Host;
using window_host::HostOptions;

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
  WebBrowser(const HostOptions& options,
             std::chrono::milliseconds patience,
             cli::RecordWriter& records)
      : options_(options),
        records_(records),
        main_loop_(loop_),
        desktop_(loop_, patience),
        host_(loop_, desktop_, options) {}

  // Ends the process.
  [[noreturn]] void Run() {
    HandleDisplayLoss([this](FoundBy found_by) {
      display_is_lost_ = true;
      if (found_by == FoundBy::kToolkit)
        EndWithoutDisplay();
      loop_.Stop();
    });
    OpenNext();
    main_loop_.Run();
    if (!failure_.ok())
      Exit(Fail(options_, EXIT_FAILURE, failure_.message()));
    if (display_is_lost_)
      EndWithoutDisplay();
    EndForClients();
  }

 private:
  [[noreturn]] void EndWithoutDisplay() {
    desktop_.Lose();
    host_.Stop();
    EndForClients();
  }

  // What is left to do for them needs no display.
  [[noreturn]] void EndForClients() {
    loop_.RunUntil([this] { return host_.IsOver(); });
    host_.Finish();
    Exit(EXIT_SUCCESS);
  }

  // Not by return, which would destroy the browser: freeing all that it holds
  // takes longer than the end of a process, and may need a display.
  [[noreturn]] void Exit(int exit_status) {
    records_.SayWhatWasLeftOut();
    std::exit(exit_status);
  }

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
    // Where the display is lost, the loop may be on the stack, and has to go on
    // to tell the clients.
    absl::Status serving = host_.Serve([this] {
      if (!display_is_lost_)
        loop_.Stop();
    });
    if (!serving.ok())
      GiveUp(serving);
  }

  void GiveUp(const absl::Status& failure) {
    failure_ = failure;
    loop_.Stop();
  }

  const HostOptions options_;
  cli::RecordWriter& records_;
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
  constexpr int kNotGiven = -1;
  options.windows = kNotGiven;
  std::chrono::milliseconds patience{5'000};
  cli::Flags flags;
  flags.AddSeconds("desktop-timeout", &patience);
  if (auto exit_code =
          ReadCommandLine(argc, argv, DescribeWebBrowser(), flags, &options))
    return *exit_code;
  if (options.windows == kNotGiven)
    options.windows = options.arguments.empty() ? 1 : 0;
  cli::RecordWriter& records = cli::WriteRecordsTo(STDERR_FILENO);
  AllowManyDescriptors();
  gdk_set_allowed_backends("x11");
  if (!gtk_init_check(nullptr, nullptr)) {
    return Fail(options, EXIT_FAILURE,
                "There is no X11 display: is $DISPLAY set?");
  }
  // What has changed is to be seen at once, whole.
  g_object_set(gtk_settings_get_default(), "gtk-enable-animations", FALSE,
               nullptr);
  WebBrowser(options, patience, records).Run();
}

}  // namespace
}  // namespace web_browser

int main(int argc, char** argv) {
  return web_browser::Main(argc, argv);
}
