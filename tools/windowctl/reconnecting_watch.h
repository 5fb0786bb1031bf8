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

#include <google/protobuf/wrappers.pb.h>

#include <cstddef>
#include <optional>
#include <vector>

#include "absl/status/status.h"
#include "absl/time/time.h"
#include "browser_id.pb.h"
#include "core/common/rpc/loop/loop.h"
#include "core/common/rpc/transport/client_controller.h"
#include "core/common/rpc/transport/event_subscriber.h"
#include "core/common/rpc/transport/reconnecting_client.h"
#include "rpc/browser/browser_window.pb.h"
#include "tools/rpcctl/exit_code.h"
#include "tools/rpcctl/options.h"

namespace windowctl {

class ReconnectingWatch {
 public:
  ReconnectingWatch(const rpcctl::Options& options,
                    std::vector<BrowserId> windows);
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

  // Asks about one window after the other. The reply to the last says that the
  // host has handled all subscriptions.
  void AwaitNextWindow();
  void OnReply();
  void OnSubscribed();

  const rpcctl::Options& options_;
  const std::vector<BrowserId> windows_;
  rpc::loop::Loop loop_;
  bool interrupted_ = false;
  // Set when the watch is over.
  std::optional<rpcctl::ExitCode> exit_code_;
  // What was last said about a host that is not there.
  absl::Status down_;
  // Since the connection was lost, until all is subscribed again.
  std::optional<absl::Time> missing_since_;

  // The call about windows_[awaited_].
  size_t awaited_ = 0;
  rpc::transport::ClientController controller_;
  google::protobuf::BoolValue visible_;

  std::optional<rpc::transport::EventSubscriber<rpc::BrowserWindowClosed>>
      events_;
  std::optional<Host> host_;
};

}  // namespace windowctl

#endif  // TOOLS_WINDOWCTL_RECONNECTING_WATCH_H_
