#include "tools/cli/socket_path.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>

#include "absl/strings/str_cat.h"
#include "core/common/rpc/testing/private_folder.h"
#include "gtest/gtest.h"

namespace cli {
namespace {

class SocketPathTest : public ::testing::Test {
 protected:
  SocketPathTest() { unsetenv("XDG_RUNTIME_DIR"); }

  const torvane::PrivateFolder private_folder_;
  const std::string& folder_ = private_folder_.path();
};

TEST_F(SocketPathTest, DefaultLiesInTheFolderOfTheLoginSession) {
  setenv("XDG_RUNTIME_DIR", "/run/user/1000", 1);
  EXPECT_EQ("/run/user/1000/window_host.sock", DefaultSocketPath());
}

TEST_F(SocketPathTest, WithoutSessionDefaultLiesInAFolderOfTheUser) {
  const std::string expected =
      absl::StrCat("/tmp/torvane-", getuid(), "/window_host.sock");
  EXPECT_EQ(expected, DefaultSocketPath());
  setenv("XDG_RUNTIME_DIR", "", 1);
  EXPECT_EQ(expected, DefaultSocketPath());
}

TEST_F(SocketPathTest, MissingFolderIsMadeForThisUserAlone) {
  const std::string folder = folder_ + "/new";
  EXPECT_EQ(absl::OkStatus(), MakeSocketFolder(folder + "/host.sock"));
  struct stat info;
  ASSERT_EQ(0, stat(folder.c_str(), &info));
  EXPECT_EQ(0700u, info.st_mode & 0777);
}

TEST_F(SocketPathTest, ExistingFolderIsUsedAsItIs) {
  EXPECT_EQ(absl::OkStatus(), MakeSocketFolder(folder_ + "/host.sock"));
  EXPECT_EQ(absl::OkStatus(), MakeSocketFolder("host.sock"));
  EXPECT_EQ(absl::OkStatus(), MakeSocketFolder("/host.sock"));
}

TEST_F(SocketPathTest, FolderThatCannotBeMadeIsNamed) {
  const absl::Status status = MakeSocketFolder(folder_ + "/a/b/host.sock");
  EXPECT_EQ(absl::StatusCode::kNotFound, status.code());
  EXPECT_NE(std::string::npos, status.message().find(folder_ + "/a/b"))
      << status;
}

TEST_F(SocketPathTest, FolderOfAnotherUserIsRefused) {
  constexpr uid_t kNobody = 65534;
  if (chown(folder_.c_str(), kNobody, -1) != 0)
    GTEST_SKIP() << "only root can give a folder away";
  EXPECT_EQ(absl::StatusCode::kPermissionDenied,
            CheckSocketFolder(folder_ + "/host.sock").code());
  EXPECT_EQ(absl::StatusCode::kPermissionDenied,
            MakeSocketFolder(folder_ + "/host.sock").code());
}

TEST_F(SocketPathTest, FolderThatDoesNotExistPassesTheCheck) {
  EXPECT_EQ(absl::OkStatus(), CheckSocketFolder(folder_ + "/no/host.sock"));
}

}  // namespace
}  // namespace cli
