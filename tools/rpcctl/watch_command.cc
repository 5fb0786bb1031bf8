#include "core/common/rpc/transport/dynamic_streams.h"
#include "tools/rpcctl/commands.h"
#include "tools/rpcctl/json.h"
#include "tools/rpcctl/keys.h"
#include "tools/rpcctl/session.h"
#include "tools/rpcctl/stream_run.h"

namespace rpcctl {

using google::protobuf::Message;
using google::protobuf::MethodDescriptor;

ExitCode WatchEvents(Session& session,
                     const MethodDescriptor* method,
                     const Keys& keys,
                     const AwaitReply& await_reply) {
  if (ExitCode fault = session.Connect(); fault != kSuccess)
    return fault;
  StreamRun run(session);
  rpc::transport::DynamicEventSubscriber events(
      session.client(), method, *session.contract().messages,
      [](const Message& event) { PrintLine(ToJson(event)); }, run.on_end());
  for (const auto& key : keys)
    events.Subscribe(*key);
  return run.Run(await_reply, [&] { events.End(); });
}

ExitCode Watch(Session& session, const Arguments& arguments) {
  if (arguments.empty())
    return Fail(kUsage, "'watch' takes a method and keys.");
  const MethodDescriptor* method;
  if (ExitCode fault = session.FindMethod(
          arguments[0], torvane::MethodKind::kEventStream, &method);
      fault != kSuccess) {
    return fault;
  }
  Keys keys;
  if (ExitCode fault = ParseKeys(
          session, *method, {arguments.begin() + 1, arguments.end()}, &keys);
      fault != kSuccess) {
    return fault;
  }
  return WatchEvents(session, method, keys, AwaitReflection);
}

}  // namespace rpcctl
