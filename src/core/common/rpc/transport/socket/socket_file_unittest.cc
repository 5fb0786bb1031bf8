// The file of a listening socket while its server starts and stops. This
// replaces listen() and unlink(), so that tests can act in between.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <functional>
#include <string>

#include "core/common/rpc/testing/private_folder.h"
#include "core/common/rpc/transport/socket/unix_socket.h"
#include "core/common/rpc/transport/testing/lab.h"

namespace {

bool listen_fails = false;
std::function<void()> before_unlink;

}  // namespace

extern "C" int listen(int fd, int backlog) {
  if (listen_fails) {
    errno = ENOBUFS;
    return -1;
  }
  return static_cast<int>(syscall(SYS_listen, fd, backlog));
}

extern "C" int unlink(const char* path) {
  if (before_unlink) {
    before_unlink();
  }
  return static_cast<int>(syscall(SYS_unlinkat, AT_FDCWD, path, 0));
}

namespace rpc::transport {
namespace {

class SocketFile : public ::testing::Test {
 protected:
  ~SocketFile() override {
    listen_fails = false;
    before_unlink = nullptr;
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
  listen_fails = true;
  const absl::Status status = UnixListener::Open(path_).status();
  EXPECT_EQ(
      status.message(),
      absl::ErrnoToStatus(ENOBUFS, "cannot listen at " + path_).message());
  EXPECT_FALSE(HasSocket());
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
