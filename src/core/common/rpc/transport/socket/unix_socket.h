// Unix domain sockets: what has to be right about their files.
//
// Asio opens and binds sockets, but knows nothing of the file that a bound
// socket leaves behind: whether the one found there is alive, who may use the
// new one, and who removes it.
//
// Ownership: an UnixListener owns its descriptor until Release() and its file
// until it is destroyed.
//
// Failure: a status whose text names the path and says what to do.

#ifndef CORE_COMMON_RPC_TRANSPORT_SOCKET_UNIX_SOCKET_H_
#define CORE_COMMON_RPC_TRANSPORT_SOCKET_UNIX_SOCKET_H_

#include <sys/types.h>

#include <string>

#include "absl/status/status.h"
#include "absl/status/statusor.h"
#include "core/common/rpc/loop/scoped_fd.h"
#include "core/common/rpc/serving/client_record.h"

namespace rpc::transport {

// A listening socket with its file.
class UnixListener {
 public:
  // Listens at `path`, for this user only. Replaces a socket on which nobody
  // listens any more; ALREADY_EXISTS when somebody does, or when the path is
  // something else than a socket. PERMISSION_DENIED when the folder is not this
  // user's, or others may do anything with it; UNAVAILABLE when another process
  // keeps it locked. Waits for that for half a second.
  static absl::StatusOr<UnixListener> Open(const std::string& path);

  UnixListener(UnixListener&& other) noexcept;
  UnixListener& operator=(UnixListener&&) = delete;
  ~UnixListener();

  // Hands over the descriptor.
  int Release() { return fd_.Release(); }

  // Removes the file, unless another socket has taken its place.
  void RemoveFile();

 private:
  UnixListener(std::string path, loop::ScopedFd fd);

  std::string path_;  // empty when there is no file to remove
  loop::ScopedFd fd_;
  // What tells our file from another in its place.
  dev_t device_ = 0;
  ino_t inode_ = 0;
};

// Connects to the socket at `path`. The socket does not block.
absl::StatusOr<loop::ScopedFd> ConnectToUnixSocket(const std::string& path);

// The process at the other end of a connected socket, when it connected.
absl::StatusOr<serving::ClientProcess> PeerOfUnixSocket(int fd);

}  // namespace rpc::transport

#endif  // CORE_COMMON_RPC_TRANSPORT_SOCKET_UNIX_SOCKET_H_
