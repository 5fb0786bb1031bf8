// 'watch --reconnect': prints the events about windows, and goes on when the
// host has gone and come again. Streams do not resume, so it says from when to
// when events may have been missed.
//
// Ownership: the options must outlive it.
//
// Sequence: one thread; Run() runs the loop.
//
// Failure: Run() prints why, and returns the exit code. A host that is not
// there is no failure.

#ifndef TOOLS_WINDOWCTL_RECONNECTING_WATCH_H_
#define TOOLS_WINDOWCTL_RECONNECTING_WATCH_H_

#include <google/protobuf/message.h>

#include <cstddef>
#include <deque>
#include <memory>
#include <optional>
#include <vector>

#include "absl/status/status.h"
#include "absl/time/time.h"
#include "browser_id.pb.h"
#include "core/common/rpc/loop/loop.h"
#include "core/common/rpc/transport/client_controller.h"
#include "core/common/rpc/transport/dynamic_streams.h"
#include "core/common/rpc/transport/reconnecting_client.h"
#include "tools/rpcctl/exit_code.h"
#include "tools/rpcctl/options.h"
#include "tools/windowctl/windows.h"

namespace windowctl {

class ReconnectingWatch {
 public:
  // Without windows it is about all of them.
  ReconnectingWatch(const rpcctl::Options& options,
                    const std::vector<BrowserId>& windows);
  ReconnectingWatch(const ReconnectingWatch&) = delete;
  ReconnectingWatch& operator=(const ReconnectingWatch&) = delete;
  ~ReconnectingWatch();

  // Until SIGINT or SIGTERM comes, or the host refuses to be watched.
  rpcctl::ExitCode Run();

 private:
  using Host = rpc::transport::ReconnectingClient;

  void OnConnected(rpc::transport::Client& client,
                   const std::optional<Host::Gap>& gap);
  void OnDown(const absl::Status& why);
  void OnStreamEnd(const absl::Status& status);
  void OnInterrupt();

  // Makes one awaited call after the other. The reply to the last says that the
  // host has handled all subscriptions.
  void AwaitNext();
  void OnReply();
  void OnSubscribed();

  const rpcctl::Options& options_;
  const std::vector<rpcctl::EventSource> sources_;
  const std::vector<AwaitedCall> calls_;
  rpc::loop::Loop loop_;
  bool interrupted_ = false;
  // Set when the watch is over.
  std::optional<rpcctl::ExitCode> exit_code_;
  // What was last said about a host that is not there.
  absl::Status down_;
  // Since the connection was lost, until all is subscribed again.
  std::optional<absl::Time> missing_since_;

  // The call calls_[awaited_].
  size_t awaited_ = 0;
  rpc::transport::ClientController controller_;
  std::unique_ptr<google::protobuf::Message> response_;

  // One for each source.
  std::deque<rpc::transport::DynamicEventSubscriber> streams_;
  std::optional<Host> host_;
};

}  // namespace windowctl

#endif  // TOOLS_WINDOWCTL_RECONNECTING_WATCH_H_
