// What the host's records say of one client: who it is, and what a limit has
// refused it.
//
// Ownership: the session's. The counters outlive it.
//
// Sequence: the loop's.

#ifndef CORE_COMMON_RPC_TRANSPORT_CLIENT_RECORD_H_
#define CORE_COMMON_RPC_TRANSPORT_CLIENT_RECORD_H_

#include <cstdint>
#include <string>

#include "absl/status/status.h"
#include "core/common/rpc/transport/counters.h"
#include "core/common/rpc/transport/unix_socket.h"

namespace rpc::transport {

// "pid 4711, user 1000"
std::string Describe(const UnixPeer& process);

class ClientRecord {
 public:
  ClientRecord(const UnixPeer& process, Counters& counters);

  const UnixPeer& process() const { return process_; }

  // What the client calls itself; is shown with escapes, and not at any length.
  void set_name(const std::string& name);
  const std::string& name() const { return name_; }

  // For services: "windowctl (pid 4711)".
  const std::string& peer() const { return peer_; }

  // A limit refuses the client something, `text` says what: returns the
  // RESOURCE_EXHAUSTED that it is told. Counted each time, written down the
  // first time: a connection can't fill the disk, though a client that connects
  // again and again can.
  absl::Status Refuse(uint64_t LimitHits::*limit, const std::string& text);

  // The connection is closed. A client that merely goes is nothing to talk
  // about.
  void OnClosed(const absl::Status& why) const;

 private:
  const UnixPeer process_;
  std::string name_;
  std::string peer_;
  // For records: "windowctl (pid 4711, user 1000)".
  std::string who_;
  Counters& counters_;
  // How often each limit has refused this client something.
  LimitHits refusals_;
};

}  // namespace rpc::transport

#endif  // CORE_COMMON_RPC_TRANSPORT_CLIENT_RECORD_H_
