#include <cstdio>

#include "core/common/rpc/transport/event_subscriber.h"
#include "rpc/browser/browser_window.pb.h"
#include "tools/windowctl/commands.h"
#include "tools/windowctl/json.h"
#include "tools/windowctl/reconnecting_watch.h"
#include "tools/windowctl/stream_session.h"

namespace windowctl {

ExitCode Watch(const Options& options, const Arguments& arguments) {
  if (options.reconnect) {
    const auto windows = ParseWindows(arguments);
    if (!windows.ok())
      return Fail(kUsage, windows.status().message());
    return ReconnectingWatch(options, *windows).Run();
  }
  StreamSession session(options);
  if (ExitCode fault = session.Open(arguments); fault != kSuccess)
    return fault;
  rpc::transport::EventSubscriber<rpc::BrowserWindowClosed> events(
      session.client(),
      rpc::BrowserWindow::descriptor()->FindMethodByName(
          "WhenBrowserWindowClosed"),
      [](const rpc::BrowserWindowClosed& event) { PrintLine(ToJson(event)); },
      session.on_end());
  for (const BrowserId& window : session.windows())
    events.Subscribe(window);
  return session.Run([&] { events.End(); });
}

}  // namespace windowctl
