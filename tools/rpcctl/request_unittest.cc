#include "tools/rpcctl/request.h"

#include <fcntl.h>
#include <unistd.h>

#include <fstream>
#include <string>
#include <vector>

#include "core/common/rpc/testing/private_folder.h"
#include "gmock/gmock.h"
#include "gtest/gtest.h"
#include "rpc/browser/browser_window.pb.h"

namespace rpcctl {
namespace {

using ::testing::HasSubstr;
using ::testing::StartsWith;

class RequestTest : public ::testing::Test {
 protected:
  // The title that the words say.
  std::string TitleIn(const std::vector<std::string>& words) {
    rpc::WindowTitle request;
    EXPECT_EQ(absl::OkStatus(), ReadRequest(words, &request));
    return request.title();
  }

  std::string Fault(const std::vector<std::string>& words) {
    rpc::WindowTitle request;
    const absl::Status status = ReadRequest(words, &request);
    EXPECT_FALSE(status.ok());
    return std::string(status.message());
  }

  std::string MakeFile(const std::string& text) {
    const std::string path = folder_.File("request");
    std::ofstream(path) << text;
    return path;
  }

  const torvane::PrivateFolder folder_;
};

TEST_F(RequestTest, IsJsonOrFields) {
  EXPECT_EQ("Inbox", TitleIn({R"({"title": "Inbox"})"}));
  EXPECT_EQ("Inbox", TitleIn({"browser_id.value=1", "title=Inbox"}));
}

TEST_F(RequestTest, IsReadFromAFile) {
  const std::string file = MakeFile("{\"title\":\n  \"Inbox\"}\n");
  EXPECT_EQ("Inbox", TitleIn({"@" + file}));
}

TEST_F(RequestTest, IsReadFromStandardInput) {
  const int input = open(MakeFile(R"({"title": "Inbox"})").c_str(), O_RDONLY);
  const int before = dup(STDIN_FILENO);
  dup2(input, STDIN_FILENO);
  EXPECT_EQ("Inbox", TitleIn({"-"}));
  dup2(before, STDIN_FILENO);
  close(before);
  close(input);
}

TEST_F(RequestTest, FileThatIsNotThereIsNamed) {
  EXPECT_EQ("Can't open /nowhere/at/all: No such file or directory",
            Fault({"@/nowhere/at/all"}));
  EXPECT_EQ("Can't read " + folder_.path() + ": Is a directory",
            Fault({"@" + folder_.path()}));
}

TEST_F(RequestTest, FileMayHaveTheGreatestLengthAndNoByteMore) {
  const std::string json = R"({"title": "Inbox"})";
  const std::string longest =
      json + std::string(kMaxJsonBytes - json.size(), ' ');
  EXPECT_EQ("Inbox", TitleIn({"@" + MakeFile(longest)}));
  EXPECT_THAT(Fault({"@" + MakeFile(longest + " ")}),
              StartsWith("There is more than 4194304 bytes of JSON in /"));
}

TEST_F(RequestTest, WordsOfBothKindsAreAFault) {
  EXPECT_THAT(Fault({"title=a", "{}"}), HasSubstr("'{}' is no FIELD=VALUE."));
  EXPECT_EQ("A request is one word of JSON, or FIELD=VALUE words.",
            Fault({"{}", "title=a"}));
  EXPECT_THAT(Fault({"{"}), StartsWith("The JSON does not fit: "));
}

}  // namespace
}  // namespace rpcctl
