// The file of a listening socket while its server starts and stops. This
// replaces the calls of the system that it takes, so that tests can act in
// between and have them fail.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <deque>
#include <filesystem>
#include <functional>
#include <string>

#include "core/common/rpc/testing/private_folder.h"
#include "core/common/rpc/transport/socket/unix_socket.h"
#include "core/common/rpc/transport/testing/lab.h"

namespace {

// The error of each call, 0 where the call succeeds; of flock() one after the
// other.
int listen_error = 0;
int connect_error = 0;
int unlink_error = 0;
std::deque<int> flock_errors;
std::function<void()> before_unlink;

int Fail(int error) {
  errno = error;
  return -1;
}

}  // namespace

extern "C" int listen(int fd, int backlog) {
  return listen_error != 0 ? Fail(listen_error)
                           : static_cast<int>(syscall(SYS_listen, fd, backlog));
}

extern "C" int connect(int fd, const sockaddr* address, socklen_t size) {
  return connect_error != 0
             ? Fail(connect_error)
             : static_cast<int>(syscall(SYS_connect, fd, address, size));
}

extern "C" int flock(int fd, int operation) {
  if (!flock_errors.empty()) {
    const int error = flock_errors.front();
    flock_errors.pop_front();
    return Fail(error);
  }
  return static_cast<int>(syscall(SYS_flock, fd, operation));
}

extern "C" int unlink(const char* path) {
  if (before_unlink) {
    before_unlink();
  }
  return unlink_error != 0
             ? Fail(unlink_error)
             : static_cast<int>(syscall(SYS_unlinkat, AT_FDCWD, path, 0));
}

namespace rpc::transport {
namespace {

class SocketFile : public ::testing::Test {
 protected:
  ~SocketFile() override {
    listen_error = connect_error = unlink_error = 0;
    flock_errors.clear();
    before_unlink = nullptr;
  }

  // As a server leaves it that is killed.
  void LeaveSocket() {
    unlink_error = EACCES;
    EXPECT_TRUE(UnixListener::Open(path_).ok());
    unlink_error = 0;
    EXPECT_TRUE(HasSocket());
  }

  bool HasSocket() const { return std::filesystem::exists(path_); }

  const torvane::PrivateFolder folder_;
  const std::string path_ = folder_.File("socket");
};

// Another server that starts then must not take the file for a dead server's:
// it would put its own there, which this one would remove.
TEST_F(SocketFile, TheSocketFileGoesWhileItsServerStillListens) {
  Lab lab;
  ASSERT_TRUE(lab.server->Listen(path_).ok());
  absl::Status other;
  before_unlink = [&] {
    before_unlink = nullptr;
    other = UnixListener::Open(path_).status();
  };
  lab.server->Stop();
  EXPECT_TRUE(absl::IsAlreadyExists(other)) << other;
  EXPECT_FALSE(HasSocket());
}

TEST_F(SocketFile, TheSocketFileGoesWhenItsSocketCannotListen) {
  listen_error = ENOBUFS;
  const absl::Status status = UnixListener::Open(path_).status();
  EXPECT_EQ(
      status.message(),
      absl::ErrnoToStatus(ENOBUFS, "cannot listen at " + path_).message());
  EXPECT_FALSE(HasSocket());
}

TEST_F(SocketFile, APathWithoutAFolderIsInTheCurrentOne) {
  const std::filesystem::path before = std::filesystem::current_path();
  std::filesystem::current_path(folder_.File(""));
  const auto listener = UnixListener::Open("socket");
  std::filesystem::current_path(before);
  EXPECT_TRUE(listener.ok()) << listener.status();
  EXPECT_TRUE(HasSocket());
}

TEST_F(SocketFile, ALockedFolderIsWaitedFor) {
  flock_errors = {EWOULDBLOCK, EINTR, EWOULDBLOCK};
  EXPECT_TRUE(UnixListener::Open(path_).ok());
  EXPECT_TRUE(flock_errors.empty());
}

TEST_F(SocketFile, AFolderThatCannotBeLockedIsNamed) {
  flock_errors = {ENOLCK};
  EXPECT_EQ(UnixListener::Open(path_).status(),
            absl::ErrnoToStatus(ENOLCK,
                                "cannot lock the folder " + folder_.File("")));
}

TEST_F(SocketFile, ASocketOfADeadServerThatCannotBeReplacedIsNamed) {
  LeaveSocket();
  unlink_error = EPERM;
  EXPECT_EQ(UnixListener::Open(path_).status(),
            absl::ErrnoToStatus(EPERM, "cannot replace the stale " + path_));
}

TEST_F(SocketFile, ASocketIsLeftAloneUnlessItsServerIsCertainlyDead) {
  LeaveSocket();
  // As many clients wait as the system lets.
  connect_error = EAGAIN;
  EXPECT_EQ(UnixListener::Open(path_).status(),
            absl::AlreadyExistsError("another server listens at " + path_ +
                                     ": stop it or choose another path"));
  connect_error = EACCES;
  EXPECT_EQ(UnixListener::Open(path_).status(),
            absl::ErrnoToStatus(EACCES,
                                "cannot tell whether " + path_ + " is in use"));
  EXPECT_TRUE(HasSocket());
  connect_error = ECONNREFUSED;
  EXPECT_TRUE(UnixListener::Open(path_).ok());
}

TEST_F(SocketFile, AServerThatTakesNoMoreConnectionsIsToldFromOneThatHasGone) {
  LeaveSocket();
  EXPECT_EQ(Client::OpenSocket(path_).status(),
            absl::UnavailableError("nobody listens at " + path_ +
                                   ": the server has gone"));
  connect_error = EAGAIN;
  EXPECT_EQ(Client::OpenSocket(path_).status(),
            absl::UnavailableError("the server at " + path_ +
                                   " accepts no connections"));
}

using SocketFileDeathTest = SocketFile;

TEST_F(SocketFileDeathTest, AServerListensOnce) {
  Lab lab;
  ASSERT_TRUE(lab.server->Listen(path_).ok());
  EXPECT_DEATH(lab.server->Listen(path_).IgnoreError(),
               "Listen\\(\\) may be used once");
}

}  // namespace
}  // namespace rpc::transport
