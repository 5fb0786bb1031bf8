// Serves the windows of a desktop to clients on a Unix socket, and lets a
// person at standard input play their user.
//
//   rpc::loop::Loop loop;
//   MemoryDesktop desktop(loop, Display{});
//   Host host(loop, desktop, options);
//   absl::Status serving = host.Serve();
//   loop.RunUntil([&] { return host.IsOver(); });
//   host.Finish();
//
// It runs until the process gets a signal that ends it, or Stop(). It then
// closes the windows, says goodbye to its clients and removes its socket.
//
// Ownership: loop and windows are the caller's and must outlive the host, which
// must outlive the last task of the loop.
//
// Sequence: that of the loop.
//
// Failure: Serve() says why it cannot.

#ifndef EXAMPLES_WINDOW_HOST_APP_HOST_H_
#define EXAMPLES_WINDOW_HOST_APP_HOST_H_

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "absl/status/status.h"
#include "core/common/rpc/loop/loop.h"
#include "core/common/rpc/reflection/reflection_service.h"
#include "core/common/rpc/status/status_service.h"
#include "core/common/rpc/trace/trace_file.h"
#include "core/common/rpc/transport/server.h"
#include "examples/window_host/app/call_logger.h"
#include "examples/window_host/app/console.h"
#include "examples/window_host/app/host_options.h"
#include "examples/window_host/service/browser.h"
#include "examples/window_host/service/directory_service.h"
#include "examples/window_host/service/window_service.h"
#include "examples/window_host/windows/window_system.h"
#include "tools/cli/line_reader.h"
#include "tools/cli/line_writer.h"
#include "tools/cli/stop_signals.h"

namespace window_host {

class Host {
 public:
  Host(rpc::loop::Loop& loop, WindowSystem& windows, HostOptions options);
  Host(const Host&) = delete;
  Host& operator=(const Host&) = delete;

  // Begins to serve, and says on standard output that it is ready. Signals stop
  // the host from here on. `on_stopped` is called when it has stopped, with its
  // windows closed, but maybe not yet over.
  absl::Status Serve(std::function<void()> on_stopped = [] {});

  // Closes the windows first, so that clients hear of it before the server says
  // goodbye.
  void Stop();

  // Whether the host has stopped, and the server has ended all that its clients
  // had under way.
  bool IsOver() const;

  // Writes the end of the trace. For programs that do not destroy their host.
  void Finish();

 private:
  absl::Status OpenTrace();
  absl::Status Listen();
  void OnInput(const std::optional<std::string>& line);

  const HostOptions options_;
  cli::LineWriter output_;
  rpc::loop::Loop& loop_;
  Browser browser_;
  Console console_;
  const std::unique_ptr<rpc::BrowserWindowRpc> service_;
  const std::unique_ptr<rpc::directory::WindowDirectoryRpc> directory_;
  CallLogger logger_;
  CallLogger directory_logger_;
  rpc::status::StatusService status_;
  rpc::reflection::ReflectionService reflection_;
  // Nothing unless it was asked for.
  std::unique_ptr<rpc::trace::TraceFile> trace_;
  // From Serve() on.
  std::optional<rpc::transport::Server> server_;
  std::optional<cli::StopSignals> stop_signals_;
  std::optional<cli::LineReader> input_;
  std::function<void()> on_stopped_ = [] {};
  // Whether the server has been told to stop.
  bool stopped_ = false;
};

}  // namespace window_host

#endif  // EXAMPLES_WINDOW_HOST_APP_HOST_H_
