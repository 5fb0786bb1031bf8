#include "core/common/rpc/transport/socket/unix_socket.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "absl/strings/match.h"
#include "absl/strings/str_cat.h"
#include "absl/strings/str_split.h"
#include "core/common/rpc/testing/private_folder.h"
#include "core/common/rpc/testing/socket_pair.h"
#include "core/common/rpc/transport/testing/lab.h"

namespace rpc::transport {
namespace {

class UnixSocket : public ::testing::Test {
 protected:
  bool HasSocket() const { return std::filesystem::exists(path_); }

  const torvane::PrivateFolder private_folder_;
  const std::string& folder_ = private_folder_.path();
  const std::string path_ = private_folder_.File("socket");
};

TEST_F(UnixSocket, ConnectsAClientToAServer) {
  Lab lab;
  ASSERT_TRUE(lab.server->Listen(path_).ok());
  const auto client = Client::Connect(lab.loop, path_);
  ASSERT_TRUE(client.ok()) << client.status();
  EXPECT_EQ(CallText(**client, &lab::Lab_Stub::Echo, "hello").value(), "hello");
}

TEST_F(UnixSocket, TheSocketIsForThisUserOnly) {
  const auto listener = UnixListener::Open(path_);
  ASSERT_TRUE(listener.ok());
  struct stat file;
  ASSERT_EQ(lstat(path_.c_str(), &file), 0);
  EXPECT_EQ(file.st_mode & 0777, 0600u);
}

TEST_F(UnixSocket, TheSocketFileGoesWhenTheServerStops) {
  Lab lab;
  ASSERT_TRUE(lab.server->Listen(path_).ok());
  EXPECT_TRUE(HasSocket());
  lab.server->Stop();
  EXPECT_FALSE(HasSocket());
  EXPECT_EQ(Client::Connect(lab.loop, path_).status(),
            absl::UnavailableError("there is no socket at " + path_ +
                                   ": is the server up?"));
}

TEST_F(UnixSocket, TheSocketFileGoesWithTheServer) {
  Lab lab;
  ASSERT_TRUE(lab.server->Listen(path_).ok());
  lab.server.reset();
  EXPECT_FALSE(HasSocket());
}

TEST_F(UnixSocket, TheSocketFileOfAnotherListenerIsNotRemoved) {
  auto first = UnixListener::Open(path_);
  ASSERT_TRUE(first.ok());
  unlink(path_.c_str());
  const auto second = UnixListener::Open(path_);
  ASSERT_TRUE(second.ok());
  first->RemoveFile();
  EXPECT_TRUE(HasSocket());
}

TEST_F(UnixSocket, TheSocketOfADeadServerIsReplaced) {
  auto dead = UnixListener::Open(path_);
  ASSERT_TRUE(dead.ok());
  close(dead->Release());
  ASSERT_TRUE(HasSocket());
  EXPECT_EQ(ConnectToUnixSocket(path_).status(),
            absl::UnavailableError("nobody listens at " + path_ +
                                   ": the server has gone"));

  Lab lab;
  EXPECT_TRUE(lab.server->Listen(path_).ok());
  EXPECT_TRUE(Client::Connect(lab.loop, path_).ok());
}

TEST_F(UnixSocket, TheSocketOfALiveServerIsLeftAlone) {
  Lab lab;
  ASSERT_TRUE(lab.server->Listen(path_).ok());
  Server second(lab.loop);
  EXPECT_EQ(second.Listen(path_),
            absl::AlreadyExistsError("another server listens at " + path_ +
                                     ": stop it or choose another path"));
  EXPECT_TRUE(Client::Connect(lab.loop, path_).ok());
}

TEST_F(UnixSocket, AFileThatIsNoSocketIsLeftAlone) {
  std::ofstream(path_) << "precious";
  EXPECT_EQ(UnixListener::Open(path_).status(),
            absl::AlreadyExistsError(
                path_ + " exists and is not a socket: choose another path"));
  EXPECT_EQ(ConnectToUnixSocket(path_).status(),
            absl::FailedPreconditionError(path_ + " is not a socket"));
  EXPECT_TRUE(HasSocket());
}

TEST_F(UnixSocket, ThePathHasALimitedLength) {
  const std::string longest =
      folder_ + "/" + std::string(107 - folder_.size() - 1, 'x');
  EXPECT_TRUE(UnixListener::Open(longest).ok());
  const std::string too_long = longest + "x";
  const absl::Status expected =
      absl::InvalidArgumentError("the socket path " + too_long +
                                 " has 108 bytes; a socket's may have 107");
  EXPECT_EQ(UnixListener::Open(too_long).status(), expected);
  EXPECT_EQ(ConnectToUnixSocket(too_long).status(), expected);
  EXPECT_EQ(UnixListener::Open("").status(),
            absl::InvalidArgumentError("the path of the socket is empty"));
}

TEST_F(UnixSocket, TheFolderMustExist) {
  const auto status = UnixListener::Open(folder_ + "/none/socket").status();
  EXPECT_TRUE(absl::IsNotFound(status)) << status;
  EXPECT_TRUE(absl::StrContains(status.message(), folder_ + "/none/socket"));
}

TEST_F(UnixSocket, AFolderThatOthersMayUseIsRefused) {
  for (const mode_t mode : {0710, 0701, 0740, 0755, 0777, 01777}) {
    ASSERT_EQ(chmod(folder_.c_str(), mode), 0);
    EXPECT_EQ(
        UnixListener::Open(path_).status(),
        absl::PermissionDeniedError("others may use the folder " + folder_ +
                                    "/ of the socket: choose one that is for "
                                    "this user only (mode 0700)"))
        << mode;
    EXPECT_FALSE(HasSocket());
  }
  ASSERT_EQ(chmod(folder_.c_str(), 0700), 0);
  EXPECT_TRUE(UnixListener::Open(path_).ok());
}

TEST_F(UnixSocket, AnotherUsersFolderIsRefused) {
  // Only root can give a folder away; others have one that is root's.
  const bool is_root = geteuid() == 0;
  const std::string folder = is_root ? folder_ + "/" : "/";
  const uid_t owner = is_root ? 1 : 0;
  if (is_root) {
    ASSERT_EQ(chown(folder_.c_str(), owner, owner), 0);
  }
  EXPECT_EQ(UnixListener::Open(folder + "socket").status(),
            absl::PermissionDeniedError(absl::StrCat(
                "the folder ", folder, " of the socket belongs to user ", owner,
                ", not to user ", geteuid(), ": choose another one")));
}

// Locks belong to descriptions of open files: this one holds it as another
// process would.
TEST_F(UnixSocket, ALockedFolderIsNamedInsteadOfWaitedForEver) {
  {
    const loop::ScopedFd holder(
        open(folder_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    ASSERT_EQ(flock(holder.get(), LOCK_EX), 0);
    EXPECT_EQ(UnixListener::Open(path_).status(),
              absl::UnavailableError(
                  "another process has had the folder " + folder_ +
                  "/ of the socket locked for 500 ms: end it (/proc/locks has "
                  "its pid) or choose another folder"));
    EXPECT_FALSE(HasSocket());
  }
  EXPECT_TRUE(UnixListener::Open(path_).ok());
}

TEST_F(UnixSocket, KnowsWhoIsAtTheOtherEnd) {
  const auto [first, second] = torvane::SocketPair();
  const auto peer = PeerOfUnixSocket(first.get());
  ASSERT_TRUE(peer.ok());
  EXPECT_EQ(peer->pid, getpid());
  EXPECT_EQ(peer->user, getuid());
  EXPECT_FALSE(PeerOfUnixSocket(STDIN_FILENO + 1000).ok());
}

// While it lives, the process has no descriptor left.
// But `left`, where the test says so.
class NoDescriptors {
 public:
  explicit NoDescriptors(int left = 0) {
    getrlimit(RLIMIT_NOFILE, &before_);
    const int next = dup(STDERR_FILENO);
    close(next);
    const rlimit none = {static_cast<rlim_t>(next + left), before_.rlim_max};
    setrlimit(RLIMIT_NOFILE, &none);
  }
  ~NoDescriptors() { setrlimit(RLIMIT_NOFILE, &before_); }

 private:
  rlimit before_;
};

TEST_F(UnixSocket, TheServerAcceptsAgainWhenDescriptorsAreFreeAgain) {
  ServerOptions options;
  options.limits.accept_pause = std::chrono::milliseconds(1);
  Lab lab(options);
  ASSERT_TRUE(lab.server->Listen(path_).ok());
  const serving::Counters& counters = lab.server->counters();
  // Kept, since a connection that ends leaves its descriptor to another.
  std::vector<asio::local::stream_protocol::socket> clients;
  testing::internal::CaptureStderr();
  for (const uint64_t times : {1u, 2u}) {
    auto& waiting = clients.emplace_back(lab.loop.context());
    waiting.open();
    {
      NoDescriptors none;
      std::error_code error;
      waiting.connect(asio::local::stream_protocol::endpoint(path_), error);
      EXPECT_FALSE(error);
      const uint64_t before = counters.limit_hits.accept_pause;
      lab.RunUntil(
          [&] { return counters.limit_hits.accept_pause >= before + 2; });
      EXPECT_EQ(counters.connections_accepted, times - 1);
    }
    lab.RunUntil([&] { return counters.connections_accepted == times; });
  }
  // All attempts in vain make one record, until one has succeeded.
  const std::vector<std::string> records = absl::StrSplit(
      testing::internal::GetCapturedStderr(), "No connection can be accepted");
  EXPECT_EQ(records.size(), 1u + 2u);
}

TEST_F(UnixSocket, TheServerDoesNotKeepTryingWithoutDescriptors) {
  ServerOptions options;
  options.limits.accept_pause = std::chrono::hours(1);
  Lab lab(options);
  ASSERT_TRUE(lab.server->Listen(path_).ok());
  asio::local::stream_protocol::socket waiting(lab.loop.context());
  waiting.open();
  std::error_code error;
  NoDescriptors none;
  waiting.connect(asio::local::stream_protocol::endpoint(path_), error);
  EXPECT_FALSE(error);
  for (int turn = 0; turn < 50; ++turn) {
    lab.loop.context().poll_one();
  }
  EXPECT_EQ(lab.server->counters().limit_hits.accept_pause, 1u);
}

TEST_F(UnixSocket, WithoutADescriptorNothingIsListenedAtAndThatIsWhy) {
  {
    NoDescriptors none;
    EXPECT_EQ(UnixListener::Open(path_).status().message(),
              absl::StrCat("cannot use the folder of ", path_,
                           ": Too many open files"));
  }
  // One is for the folder.
  NoDescriptors one_left(1);
  const absl::Status status = UnixListener::Open(path_).status();
  EXPECT_EQ(status.code(), absl::StatusCode::kResourceExhausted);
  EXPECT_EQ(status.message(),
            absl::StrCat("cannot listen at ", path_, ": Too many open files"));
  EXPECT_FALSE(HasSocket());
}

TEST_F(UnixSocket, WithoutADescriptorTheSocketOfADeadServerStays) {
  auto dead = UnixListener::Open(path_);
  ASSERT_TRUE(dead.ok());
  close(dead->Release());
  NoDescriptors one_left(1);
  EXPECT_EQ(UnixListener::Open(path_).status().message(),
            absl::StrCat("cannot tell whether ", path_,
                         " is in use: Too many open files"));
  EXPECT_TRUE(HasSocket());
}

TEST_F(UnixSocket, WithoutADescriptorNobodyIsConnectedAndThatIsWhy) {
  Lab lab;
  ASSERT_TRUE(lab.server->Listen(path_).ok());
  NoDescriptors none;
  const absl::Status status = ConnectToUnixSocket(path_).status();
  EXPECT_EQ(status.code(), absl::StatusCode::kResourceExhausted);
  EXPECT_EQ(status.message(),
            absl::StrCat("cannot connect to ", path_, ": Too many open files"));
}

}  // namespace
}  // namespace rpc::transport
