// The file of a listening socket at moments that no test could meet from
// outside: this stands in for the system calls listen() and unlink().

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <functional>
#include <string>

#include "core/common/rpc/transport/lab.h"
#include "core/common/rpc/transport/unix_socket.h"

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
  SocketFile() {
    std::string pattern = "/tmp/lab.XXXXXX";
    folder_ = mkdtemp(pattern.data());
    path_ = folder_ + "/socket";
  }
  ~SocketFile() override {
    listen_fails = false;
    before_unlink = nullptr;
    unlink(path_.c_str());
    rmdir(folder_.c_str());
  }

  bool Exists() const {
    struct stat file;
    return lstat(path_.c_str(), &file) == 0;
  }

  std::string folder_;
  std::string path_;
};

// Another server that starts then must not take the file for a dead server's:
// it would put its own there, which this one would remove.
TEST_F(SocketFile, GoesWhileItsServerStillListens) {
  Lab lab;
  ASSERT_TRUE(lab.server->Listen(path_).ok());
  absl::Status other;
  before_unlink = [&] {
    before_unlink = nullptr;
    other = UnixListener::Open(path_).status();
  };
  lab.server->Stop();
  EXPECT_TRUE(absl::IsAlreadyExists(other)) << other;
  EXPECT_FALSE(Exists());
}

TEST_F(SocketFile, GoesWhenItsSocketCannotListen) {
  listen_fails = true;
  const absl::Status status = UnixListener::Open(path_).status();
  EXPECT_EQ(
      status.message(),
      absl::ErrnoToStatus(ENOBUFS, "cannot listen at " + path_).message());
  EXPECT_FALSE(Exists());
}

}  // namespace
}  // namespace rpc::transport
