#include "tools/windowctl/commands.h"
#include "tools/windowctl/reconnecting_watch.h"
#include "tools/windowctl/windows.h"

namespace windowctl {

rpcctl::ExitCode Watch(rpcctl::Session& session,
                       const rpcctl::Arguments& arguments) {
  std::vector<BrowserId> windows;
  if (!session.options().all) {
    auto parsed = ParseWindows(arguments);
    if (!parsed.ok())
      return rpcctl::Fail(rpcctl::kUsage, parsed.status().message());
    windows = *std::move(parsed);
  } else if (!arguments.empty()) {
    return rpcctl::Fail(rpcctl::kUsage,
                        "'watch' takes ids of windows, or --all.");
  }
  if (session.options().reconnect)
    return ReconnectingWatch(session.options(), windows).Run();
  if (const auto fault = session.LoadContract(); fault != rpcctl::kSuccess)
    return fault;
  return rpcctl::WatchEvents(session, SourcesFor(windows),
                             AwaitWindows(windows));
}

}  // namespace windowctl
