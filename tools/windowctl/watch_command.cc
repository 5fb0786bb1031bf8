#include "tools/windowctl/commands.h"
#include "tools/windowctl/reconnecting_watch.h"
#include "tools/windowctl/windows.h"

namespace windowctl {

rpcctl::ExitCode Watch(rpcctl::Session& session,
                       const rpcctl::Arguments& arguments) {
  const auto windows = ParseWindows(arguments);
  if (!windows.ok())
    return rpcctl::Fail(rpcctl::kUsage, windows.status().message());
  if (session.options().reconnect)
    return ReconnectingWatch(session.options(), *windows).Run();
  const google::protobuf::MethodDescriptor* method;
  if (const rpcctl::ExitCode fault =
          session.FindMethod("WhenBrowserWindowClosed",
                             torvane::MethodKind::kEventStream, &method);
      fault != rpcctl::kSuccess) {
    return fault;
  }
  return rpcctl::WatchEvents(session, method, KeysOf(*windows),
                             AwaitWindows(*windows));
}

}  // namespace windowctl
