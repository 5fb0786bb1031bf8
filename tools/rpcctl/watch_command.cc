#include <deque>
#include <string>
#include <vector>

#include "absl/strings/str_cat.h"
#include "absl/time/clock.h"
#include "absl/time/time.h"
#include "core/common/rpc/transport/dynamic_streams.h"
#include "tools/rpcctl/commands.h"
#include "tools/rpcctl/json.h"
#include "tools/rpcctl/keys.h"
#include "tools/rpcctl/session.h"
#include "tools/rpcctl/stream_run.h"

namespace rpcctl {

using google::protobuf::Message;
using google::protobuf::MethodDescriptor;

std::string EventLine(const Options& options,
                      const std::string& label,
                      const Message& event) {
  std::string line = ToJson(event);
  if (!label.empty())
    line = absl::StrCat("{\"", label, "\":", line, "}");
  if (!options.timestamps)
    return line;
  const std::string time = absl::FormatTime("%Y-%m-%dT%H:%M:%E6SZ", absl::Now(),
                                            absl::UTCTimeZone());
  return absl::StrCat("{\"time\":\"", time, "\",\"event\":", line, "}");
}

ExitCode WatchEvents(Session& session,
                     const std::vector<EventSource>& sources,
                     const AwaitReply& await_reply) {
  if (ExitCode fault = session.Connect(); fault != kSuccess)
    return fault;
  StreamRun run(session);
  std::deque<rpc::transport::DynamicEventSubscriber> streams;
  for (const EventSource& source : sources) {
    auto& stream = streams.emplace_back(
        session.client(), source.method, *session.contract().messages,
        [&](const Message& event) {
          PrintLine(EventLine(session.options(), source.label, event));
        },
        run.on_end());
    for (const auto& key : source.keys)
      stream.Subscribe(*key);
  }
  return run.Run(await_reply, [&] {
    for (auto& stream : streams)
      stream.End();
  });
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
  std::vector<EventSource> sources(1);
  sources[0].method = method;
  if (ExitCode fault =
          ParseKeys(session, *method, {arguments.begin() + 1, arguments.end()},
                    &sources[0].keys);
      fault != kSuccess) {
    return fault;
  }
  return WatchEvents(session, sources, AwaitReflection);
}

}  // namespace rpcctl
