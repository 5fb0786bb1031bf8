// What the host's records say of one client: who it is, and what a limit has
// refused it.
//
// Ownership: the transport's, for each client. The counters outlive it.
//
// Sequence: the server's.
//
// Failure: none of its own; NoteLimit() makes the status that the client gets.

#ifndef CORE_COMMON_RPC_SERVING_CLIENT_RECORD_H_
#define CORE_COMMON_RPC_SERVING_CLIENT_RECORD_H_

#include <sys/types.h>

#include <cstdint>
#include <string>

#include "absl/status/status.h"
#include "core/common/rpc/serving/counters.h"
#include "core/common/rpc/serving/server_report.h"
#include "core/common/rpc/serving/trace.h"

namespace rpc::serving {

// The process at the other end, as the system vouches for it.
struct ClientProcess {
  pid_t pid;
  uid_t user;
};

// "pid 4711, user 1000"
std::string Describe(const ClientProcess& process);

class ClientRecord {
 public:
  ClientRecord(const ClientProcess& process,
               Counters& counters,
               const ClientTrace& trace = {});

  const ClientProcess& process() const { return process_; }

  // What the client calls itself; is shown with escapes, and not at any length.
  void set_name(const std::string& name);
  const std::string& name() const { return name_; }

  // For services: "windowctl (pid 4711)".
  const std::string& peer() const { return peer_; }

  const ClientTrace& trace() const { return trace_; }

  // Fills in what `report` says of who the client is.
  void Report(ConnectionReport& report) const;

  // A limit keeps something from the client; returns the RESOURCE_EXHAUSTED,
  // with `text`, that it is told. Counted each time, but logged only the first
  // time for each limit, so that no connection can fill the disk. What a
  // client makes that connects again and again, the program has to limit.
  absl::Status NoteLimit(uint64_t LimitHits::*limit, const std::string& text);

  // A message that no stream may see; returns the INVALID_ARGUMENT, with
  // `text`, that ends its stream. Counted each time, but logged only the first
  // time.
  absl::Status NoteRefusedMessage(const std::string& text);

  // The connection is closed. Logged, unless the client has merely gone.
  void OnClosed(const absl::Status& why) const;

 private:
  void RecordRefusal(const absl::Status& why) const;

  const ClientProcess process_;
  std::string name_;
  std::string peer_;
  // For records: "windowctl (pid 4711, user 1000)".
  std::string who_;
  Counters& counters_;
  const ClientTrace trace_;
  // How often each limit has refused this client something.
  LimitHits refusals_;
  // How often a message of its was refused.
  uint64_t messages_refused_ = 0;
};

}  // namespace rpc::serving

#endif  // CORE_COMMON_RPC_SERVING_CLIENT_RECORD_H_
