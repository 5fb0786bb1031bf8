// Connects to the host, and explains to the user why that or a call has failed.
//
// Ownership: the client is the caller's. Sequence: that of the loop.

#ifndef TOOLS_WINDOWCTL_CONNECT_H_
#define TOOLS_WINDOWCTL_CONNECT_H_

#include <chrono>
#include <memory>

#include "absl/status/status.h"
#include "absl/status/statusor.h"
#include "core/common/rpc/loop/loop.h"
#include "core/common/rpc/transport/client.h"
#include "tools/windowctl/exit_code.h"
#include "tools/windowctl/options.h"

namespace windowctl {

// What is left of --timeout, which covers connecting and the calls after it.
// Begins when it is created: before Connect().
class Deadline {
 public:
  Deadline(const rpc::loop::Sequence& sequence, const Options& options)
      : sequence_(sequence), end_(sequence.Now() + options.timeout) {}

  // For a call's timeout; 0 or less when nothing is left.
  std::chrono::milliseconds Left() const {
    return std::chrono::floor<std::chrono::milliseconds>(end_ -
                                                         sequence_.Now());
  }

 private:
  const rpc::loop::Sequence& sequence_;
  const rpc::loop::Clock::time_point end_;
};

// How windowctl introduces itself, and for how long it waits for the welcome.
rpc::transport::ClientOptions ClientOptionsFor(const Options& options);

// Blocks until connected, for options.timeout at most. The error's text is for
// the user.
absl::StatusOr<std::unique_ptr<rpc::transport::Client>> Connect(
    rpc::loop::Loop& loop,
    const Options& options);

// Prints why a call or a stream of `client` has failed. Returns kNoConnection
// if that was because the connection is lost, otherwise kCallFailed.
ExitCode FailOn(const rpc::transport::Client& client,
                const absl::Status& status);

}  // namespace windowctl

#endif  // TOOLS_WINDOWCTL_CONNECT_H_
