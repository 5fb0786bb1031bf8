#include "core/common/rpc/transport/socket/unix_socket.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstring>
#include <thread>
#include <utility>

#include "absl/strings/str_cat.h"

namespace rpc::transport {
namespace {

// Read and write for the user that owns the socket, nothing for anybody else.
constexpr mode_t kSocketMode = 0600;

// For how long another process may have the folder locked, and the pause
// between two looks. A server that starts has it locked for less than a
// millisecond.
constexpr std::chrono::milliseconds kLockTime{500};
constexpr std::chrono::milliseconds kLockPause{5};

absl::Status Errno(int error, const std::string& what) {
  return absl::ErrnoToStatus(error, what);
}

absl::StatusOr<sockaddr_un> AddressOf(const std::string& path) {
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  constexpr size_t kMaxPath = sizeof(address.sun_path) - 1;
  if (path.empty()) {
    return absl::InvalidArgumentError("the path of the socket is empty");
  }
  if (path.size() > kMaxPath) {
    return absl::InvalidArgumentError(
        absl::StrCat("the socket path ", path, " has ", path.size(),
                     " bytes; a socket's may have ", kMaxPath));
  }
  std::memcpy(address.sun_path, path.data(), path.size());
  return address;
}

loop::ScopedFd NewSocket() {
  return loop::ScopedFd(
      socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
}

const sockaddr* Generic(const sockaddr_un& address) {
  return reinterpret_cast<const sockaddr*>(&address);
}

bool IsSocket(const std::string& path) {
  struct stat file;
  return stat(path.c_str(), &file) == 0 && S_ISSOCK(file.st_mode);
}

// The socket's mode already keeps others from connecting. Whoever may write to
// the folder could replace the socket.
absl::Status CheckPrivate(const std::string& folder, const struct stat& info) {
  if (info.st_uid != geteuid()) {
    return absl::PermissionDeniedError(absl::StrCat(
        "the folder ", folder, " of the socket belongs to user ", info.st_uid,
        ", not to user ", geteuid(), ": choose another one"));
  }
  if ((info.st_mode & (S_IRWXG | S_IRWXO)) != 0) {
    return absl::PermissionDeniedError(absl::StrCat(
        "others may use the folder ", folder,
        " of the socket: choose one that is for this user only (mode 0700)"));
  }
  return absl::OkStatus();
}

// Waits a short while at most: whoever holds the lock may never let it go.
absl::Status Lock(int fd, const std::string& folder) {
  const auto end = std::chrono::steady_clock::now() + kLockTime;
  while (flock(fd, LOCK_EX | LOCK_NB) != 0) {
    if (errno != EWOULDBLOCK && errno != EINTR) {
      return Errno(errno, absl::StrCat("cannot lock the folder ", folder));
    }
    if (std::chrono::steady_clock::now() >= end) {
      return absl::UnavailableError(absl::StrCat(
          "another process has had the folder ", folder,
          " of the socket locked for ", kLockTime.count(),
          " ms: end it (/proc/locks has its pid) or choose another folder"));
    }
    std::this_thread::sleep_for(kLockPause);
  }
  return absl::OkStatus();
}

// Locks the folder, so that two servers cannot check and replace the same file
// at once.
absl::StatusOr<loop::ScopedFd> LockFolderOf(const std::string& path) {
  const size_t slash = path.rfind('/');
  std::string folder = ".";
  if (slash != std::string::npos) {
    folder = path.substr(0, slash + 1);
  }
  loop::ScopedFd fd(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  struct stat info;
  if (!fd.is_valid() || fstat(fd.get(), &info) != 0) {
    return Errno(errno, absl::StrCat("cannot use the folder of ", path));
  }
  const absl::Status privacy = CheckPrivate(folder, info);
  if (!privacy.ok()) {
    return privacy;
  }
  absl::Status lock = Lock(fd.get(), folder);
  if (!lock.ok()) {
    return lock;
  }
  return fd;
}

// Removes a socket that a dead server has left at `path`.
absl::Status MakeRoom(const std::string& path, const sockaddr_un& address) {
  struct stat file;
  if (lstat(path.c_str(), &file) != 0) {
    return errno == ENOENT
               ? absl::OkStatus()
               : Errno(errno, absl::StrCat("cannot look at ", path));
  }
  if (!S_ISSOCK(file.st_mode)) {
    return absl::AlreadyExistsError(
        absl::StrCat(path, " exists and is not a socket: choose another path"));
  }
  const loop::ScopedFd probe = NewSocket();
  if (!probe.is_valid()) {
    return Errno(errno,
                 absl::StrCat("cannot tell whether ", path, " is in use"));
  }
  if (connect(probe.get(), Generic(address), sizeof(address)) == 0 ||
      errno == EAGAIN) {
    return absl::AlreadyExistsError(
        absl::StrCat("another server listens at ", path,
                     ": stop it or choose another path"));
  }
  if (errno != ECONNREFUSED) {
    return Errno(errno,
                 absl::StrCat("cannot tell whether ", path, " is in use"));
  }
  if (unlink(path.c_str()) != 0) {
    return Errno(errno, absl::StrCat("cannot replace the stale ", path));
  }
  return absl::OkStatus();
}

}  // namespace

absl::StatusOr<UnixListener> UnixListener::Open(const std::string& path) {
  const absl::StatusOr<sockaddr_un> address = AddressOf(path);
  if (!address.ok()) {
    return address.status();
  }
  const absl::StatusOr<loop::ScopedFd> lock = LockFolderOf(path);
  if (!lock.ok()) {
    return lock.status();
  }
  const absl::Status room = MakeRoom(path, *address);
  if (!room.ok()) {
    return room;
  }
  loop::ScopedFd fd = NewSocket();
  // The mode that the socket has when it is bound becomes that of its file.
  if (!fd.is_valid() || fchmod(fd.get(), kSocketMode) != 0 ||
      bind(fd.get(), Generic(*address), sizeof(*address)) != 0) {
    return Errno(errno, absl::StrCat("cannot listen at ", path));
  }
  // The file exists now; the listener's destructor removes it.
  UnixListener listener(path, std::move(fd));
  if (listen(listener.fd_.get(), SOMAXCONN) != 0) {
    return Errno(errno, absl::StrCat("cannot listen at ", path));
  }
  return listener;
}

UnixListener::UnixListener(std::string path, loop::ScopedFd fd)
    : path_(std::move(path)), fd_(std::move(fd)) {
  struct stat file;
  if (lstat(path_.c_str(), &file) == 0) {
    device_ = file.st_dev;
    inode_ = file.st_ino;
  }
}

UnixListener::UnixListener(UnixListener&& other) noexcept
    : path_(std::exchange(other.path_, {})),
      fd_(std::move(other.fd_)),
      device_(other.device_),
      inode_(other.inode_) {}

UnixListener::~UnixListener() {
  RemoveFile();
}

void UnixListener::RemoveFile() {
  const std::string path = std::exchange(path_, {});
  struct stat file;
  if (!path.empty() && lstat(path.c_str(), &file) == 0 &&
      file.st_dev == device_ && file.st_ino == inode_) {
    unlink(path.c_str());
  }
}

absl::StatusOr<loop::ScopedFd> ConnectToUnixSocket(const std::string& path) {
  const absl::StatusOr<sockaddr_un> address = AddressOf(path);
  if (!address.ok()) {
    return address.status();
  }
  loop::ScopedFd fd = NewSocket();
  if (!fd.is_valid()) {
    return Errno(errno, absl::StrCat("cannot connect to ", path));
  }
  if (connect(fd.get(), Generic(*address), sizeof(*address)) == 0) {
    return fd;
  }
  switch (const int error = errno) {
    case ENOENT:
      return absl::UnavailableError(
          absl::StrCat("there is no socket at ", path, ": is the server up?"));
    case ECONNREFUSED:
      if (!IsSocket(path)) {
        return absl::FailedPreconditionError(
            absl::StrCat(path, " is not a socket"));
      }
      return absl::UnavailableError(
          absl::StrCat("nobody listens at ", path, ": the server has gone"));
    case EAGAIN:
      return absl::UnavailableError(
          absl::StrCat("the server at ", path, " accepts no connections"));
    default:
      return Errno(error, absl::StrCat("cannot connect to ", path));
  }
}

absl::StatusOr<serving::ClientProcess> PeerOfUnixSocket(int fd) {
  ucred credentials = {};
  socklen_t size = sizeof(credentials);
  if (getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &credentials, &size) != 0) {
    return Errno(errno, "cannot tell who is at the other end of a socket");
  }
  return serving::ClientProcess{credentials.pid, credentials.uid};
}

}  // namespace rpc::transport
