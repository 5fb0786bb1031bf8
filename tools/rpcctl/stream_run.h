// What 'watch' and 'answer' have in common: a stream, which they keep open
// until the user interrupts them.
//
//   StreamRun run(session);
//   DynamicEventSubscriber stream(session.client(), ..., run.on_end());
//   ... subscribe ...
//   return run.Run(AwaitReflection, [&] { stream.End(); });
//
// Ownership: the run must outlive the stream, and the session the run.
//
// Sequence: that of the session; Run() runs its loop.
//
// Failure: Run() prints why, and returns the exit code.

#ifndef TOOLS_RPCCTL_STREAM_RUN_H_
#define TOOLS_RPCCTL_STREAM_RUN_H_

#include <functional>
#include <optional>

#include "absl/status/status.h"
#include "tools/rpcctl/commands.h"
#include "tools/rpcctl/session.h"

namespace rpcctl {

class StreamRun {
 public:
  // The session is connected.
  explicit StreamRun(Session& session);

  // Waits until the stream is subscribed, says so on standard error, and waits
  // until the stream is over. On SIGINT or SIGTERM it calls `end`, which must
  // end the stream.
  ExitCode Run(const AwaitReply& await_reply, const std::function<void()>& end);

  // For the stream's end callback.
  std::function<void(const absl::Status&)> on_end();

 private:
  ExitCode OutcomeOf(const absl::Status& end);

  Session& session_;
  // Set when the stream has ended.
  std::optional<absl::Status> ended_;
};

// Asks the reflection service for something short. An AwaitReply for servers
// whose contract came from there.
ExitCode AwaitReflection(Session& session);

}  // namespace rpcctl

#endif  // TOOLS_RPCCTL_STREAM_RUN_H_
