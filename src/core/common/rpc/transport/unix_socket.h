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

#ifndef CORE_COMMON_RPC_TRANSPORT_UNIX_SOCKET_H_
#define CORE_COMMON_RPC_TRANSPORT_UNIX_SOCKET_H_

#include <sys/types.h>

#include <string>
#include <utility>

#include "absl/status/status.h"
#include "absl/status/statusor.h"

namespace rpc::transport {

// A file descriptor, closed with this object.
class ScopedFd {
 public:
  explicit ScopedFd(int fd = -1) : fd_(fd) {}
  ScopedFd(ScopedFd&& other) noexcept : fd_(other.Release()) {}
  ScopedFd& operator=(ScopedFd&& other) noexcept {
    std::swap(fd_, other.fd_);
    return *this;
  }
  ~ScopedFd();

  int get() const { return fd_; }
  bool is_valid() const { return fd_ >= 0; }
  int Release() { return std::exchange(fd_, -1); }

 private:
  int fd_;
};

// A listening socket with its file.
class UnixListener {
 public:
  // Listens at `path`, for this user only. Replaces a socket on which nobody
  // listens any more; ALREADY_EXISTS when somebody does, or when the path is
  // something else than a socket. PERMISSION_DENIED when the folder is not this
  // user's, or others may do anything with it.
  static absl::StatusOr<UnixListener> Open(const std::string& path);

  UnixListener(UnixListener&& other) noexcept;
  UnixListener& operator=(UnixListener&&) = delete;
  ~UnixListener();

  // Hands over the descriptor.
  int Release() { return fd_.Release(); }

  // Removes the file, unless another socket has taken its place.
  void RemoveFile();

 private:
  UnixListener(std::string path, ScopedFd fd);

  std::string path_;  // empty when there is no file to remove
  ScopedFd fd_;
  // What tells our file from another in its place.
  dev_t device_ = 0;
  ino_t inode_ = 0;
};

// Connects to the socket at `path`.
absl::StatusOr<ScopedFd> ConnectToUnixSocket(const std::string& path);

// The process at the other end of a connected socket.
struct UnixPeer {
  pid_t pid;
  uid_t user;
};
absl::StatusOr<UnixPeer> PeerOfUnixSocket(int fd);

}  // namespace rpc::transport

#endif  // CORE_COMMON_RPC_TRANSPORT_UNIX_SOCKET_H_
