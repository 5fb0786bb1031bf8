// What 'watch' and 'answer' have in common: a connection with one stream on it,
// which they keep open until the user interrupts them.
//
//   StreamSession session(options);
//   if (ExitCode code = session.Open(arguments)) return code;
//   EventSubscriber<...> stream(session.client(), ..., session.on_end());
//   ... subscribe to session.windows() ...
//   return session.Run([&] { stream.End(); });
//
// Ownership: the session must outlive the stream.
//
// Sequence: one thread; Run() runs the loop.
//
// Failure: Open() and Run() print why, and return the exit code.

#ifndef TOOLS_WINDOWCTL_STREAM_SESSION_H_
#define TOOLS_WINDOWCTL_STREAM_SESSION_H_

#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "absl/status/status.h"
#include "absl/status/statusor.h"
#include "browser_id.pb.h"
#include "core/common/rpc/loop/loop.h"
#include "core/common/rpc/transport/client.h"
#include "tools/windowctl/commands.h"
#include "tools/windowctl/connect.h"

namespace windowctl {

// The windows that the words name by their ids, at least one; or what is wrong
// with them.
absl::StatusOr<std::vector<BrowserId>> ParseWindows(const Arguments& words);

class StreamSession {
 public:
  explicit StreamSession(const Options& options);

  // Connects for the windows that the words name. When it returns anything but
  // kSuccess, it has said why on standard error.
  ExitCode Open(const Arguments& window_words);

  // Waits until the stream is subscribed, says so on standard error, and waits
  // until the stream is over. On SIGINT or SIGTERM it calls `end`, which must
  // end the stream.
  ExitCode Run(const std::function<void()>& end);

  // For the stream's end callback.
  std::function<void(const absl::Status&)> on_end();

  rpc::loop::Loop& loop() { return loop_; }
  rpc::transport::Client& client() { return *client_; }
  const std::vector<BrowserId>& windows() const { return windows_; }

 private:
  // Makes a call about the window. The host replies after it has handled the
  // subscription that was sent before, and says whether there is such a window.
  ExitCode AwaitWindow(const BrowserId& window);
  ExitCode OutcomeOf(const absl::Status& end);

  const Options& options_;
  rpc::loop::Loop loop_;
  std::vector<BrowserId> windows_;
  // For connecting and subscribing. Set by Open().
  std::optional<Deadline> deadline_;
  std::unique_ptr<rpc::transport::Client> client_;
  // Set when the stream has ended.
  std::optional<absl::Status> ended_;
};

}  // namespace windowctl

#endif  // TOOLS_WINDOWCTL_STREAM_SESSION_H_
