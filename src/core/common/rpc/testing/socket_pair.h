// Two connected sockets.

#ifndef CORE_COMMON_RPC_TESTING_SOCKET_PAIR_H_
#define CORE_COMMON_RPC_TESTING_SOCKET_PAIR_H_

#include <sys/socket.h>

#include <utility>

#include "absl/log/absl_check.h"
#include "core/common/rpc/loop/scoped_fd.h"

namespace torvane {

inline std::pair<rpc::loop::ScopedFd, rpc::loop::ScopedFd> SocketPair() {
  int ends[2];
  ABSL_PCHECK(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) == 0);
  return {rpc::loop::ScopedFd(ends[0]), rpc::loop::ScopedFd(ends[1])};
}

}  // namespace torvane

#endif  // CORE_COMMON_RPC_TESTING_SOCKET_PAIR_H_
