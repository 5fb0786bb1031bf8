#include "examples/window_host/app/host.h"

#include <unistd.h>

#include <utility>

#include "absl/strings/str_cat.h"
#include "tools/cli/socket_path.h"

namespace window_host {

Host::Host(rpc::loop::Loop& loop, WindowSystem& windows, HostOptions options)
    : options_(std::move(options)),
      output_(STDOUT_FILENO, "line"),
      loop_(loop),
      browser_(loop, windows, options_.answer_timeout),
      console_(windows,
               browser_,
               [this](const std::string& line) { output_.Write(line); }),
      service_(MakeWindowService(windows, browser_)),
      directory_(MakeDirectoryService(windows, options_.directory)),
      logger_(*service_),
      directory_logger_(*directory_),
      status_([this] { return server_->Report(); }),
      reflection_([this] { return server_->Services(); }) {}

absl::Status Host::Serve(std::function<void()> on_stopped) {
  on_stopped_ = std::move(on_stopped);
  // Watched before there is a socket, which else would stay when a signal comes
  // right after.
  stop_signals_.emplace(loop_, [this] { Stop(); });
  if (absl::Status opened = OpenTrace(); !opened.ok())
    return opened;
  if (absl::Status listening = Listen(); !listening.ok())
    return listening;
  input_.emplace(
      loop_, STDIN_FILENO,
      [this](const std::optional<std::string>& line) { OnInput(line); });
  output_.Write(absl::StrCat(options_.program, ": ready at ", options_.socket));
  return absl::OkStatus();
}

absl::Status Host::OpenTrace() {
  if (options_.trace.empty())
    return absl::OkStatus();
  auto opened = rpc::trace::TraceFile::Open(loop_, options_.trace);
  if (!opened.ok())
    return opened.status();
  trace_ = *std::move(opened);
  return absl::OkStatus();
}

absl::Status Host::Listen() {
  rpc::transport::ServerOptions options;
  options.limits = options_.limits;
  options.trace = trace_.get();
  server_.emplace(loop_, options);
  server_->AddService(&logger_);
  server_->AddService(&status_);
  server_->AddService(&directory_logger_);
  server_->AddService(&reflection_);
  absl::Status made = cli::MakeSocketFolder(options_.socket);
  return made.ok() ? server_->Listen(options_.socket) : made;
}

void Host::OnInput(const std::optional<std::string>& line) {
  if (!line)
    return;
  if (cli::LineReader::IsTooLong(*line)) {
    return output_.Write(absl::StrCat("A line of more than ",
                                      cli::LineReader::kMaxLineBytes,
                                      " bytes is not read."));
  }
  console_.Obey(*line);
}

void Host::Stop() {
  input_.reset();
  browser_.Shutdown([this] {
    if (server_)
      server_->Stop();
    stopped_ = true;
    on_stopped_();
  });
}

bool Host::IsOver() const {
  return stopped_ && (!server_ || server_->counters().connections_now == 0);
}

void Host::Finish() {
  if (trace_)
    trace_->Close();
}

}  // namespace window_host
