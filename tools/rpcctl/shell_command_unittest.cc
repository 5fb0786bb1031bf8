#include "tools/rpcctl/shell_command.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <optional>
#include <string>
#include <vector>

#include "core/common/rpc/testing/private_folder.h"
#include "gmock/gmock.h"
#include "gtest/gtest.h"

namespace rpcctl {
namespace {

using ::testing::UnorderedElementsAre;

// Runs the command to its end.
absl::StatusOr<std::string> OutputOf(const std::string& command,
                                     const std::string& input = "") {
  rpc::loop::Loop loop;
  std::vector<absl::StatusOr<std::string>> outputs;
  const ShellCommand running(loop, command, input,
                             [&](const absl::StatusOr<std::string>& output) {
                               outputs.push_back(output);
                             });
  EXPECT_TRUE(outputs.empty());
  loop.Run();
  EXPECT_EQ(1u, outputs.size());
  return outputs.at(0);
}

TEST(ShellCommand, OutputIsWhatTheCommandPrints) {
  EXPECT_EQ("one\ntwo\n", *OutputOf("echo one; echo two"));
  EXPECT_EQ("", *OutputOf("true"));
}

TEST(ShellCommand, CommandReadsItsInput) {
  EXPECT_EQ("a question\n", *OutputOf("cat", "a question\n"));
}

TEST(ShellCommand, InputLongerThanAPipeComesBackWhole) {
  const std::string input(300'000, 'x');
  EXPECT_EQ(input, *OutputOf("cat", input));
}

TEST(ShellCommand, InputNeedNotBeRead) {
  EXPECT_EQ("done\n", *OutputOf("echo done", std::string(300'000, 'x')));
}

TEST(ShellCommand, FailureSaysHowTheCommandEnded) {
  EXPECT_EQ(absl::AbortedError("the command ended with exit code 3"),
            OutputOf("echo some output; exit 3").status());
  EXPECT_EQ(absl::AbortedError("the command was ended by signal 15"),
            OutputOf("kill -TERM $$").status());
  EXPECT_EQ(absl::AbortedError("the command ended with exit code 127"),
            OutputOf("exec 2>/dev/null; no-such-command").status());
}

TEST(ShellCommand, CommandThatClosesItsOutputIsWaitedFor) {
  const torvane::PrivateFolder folder;
  const std::string pipe = folder.File("pipe");
  ASSERT_EQ(0, mkfifo(pipe.c_str(), 0600));
  rpc::loop::Loop loop;
  int ended = 0;
  const ShellCommand running(
      loop, "exec >&-; read line <" + pipe + "; exit $line", "",
      [&](const absl::StatusOr<std::string>& output) {
        ++ended;
        EXPECT_EQ(absl::AbortedError("the command ended with exit code 4"),
                  output.status());
      });
  // Returns when the command reads, and so has closed its output.
  const int writer = open(pipe.c_str(), O_WRONLY);
  loop.RunReady();
  EXPECT_EQ(0, ended);
  EXPECT_EQ(2, write(writer, "4\n", 2));
  close(writer);
  loop.Run();
  EXPECT_EQ(1, ended);
}

TEST(ShellCommand, SeveralRunAtOnce) {
  // The first to start can only end once the second runs as well.
  const torvane::PrivateFolder folder;
  const std::string pipe = folder.File("pipe");
  ASSERT_EQ(0, mkfifo(pipe.c_str(), 0600));
  rpc::loop::Loop loop;
  std::vector<std::string> outputs;
  auto keep = [&](const absl::StatusOr<std::string>& output) {
    outputs.push_back(*output);
  };
  const ShellCommand reader(loop, "cat " + pipe, "", keep);
  const ShellCommand writer(loop, "echo hello >" + pipe, "", keep);
  loop.Run();
  EXPECT_THAT(outputs, UnorderedElementsAre("", "hello\n"));
}

TEST(ShellCommand, DestroyedWhileTheCommandRunsItCallsNothing) {
  const torvane::PrivateFolder folder;
  const std::string pipe = folder.File("pipe");
  ASSERT_EQ(0, mkfifo(pipe.c_str(), 0600));
  rpc::loop::Loop loop;
  bool called = false;
  std::optional<ShellCommand> running;
  running.emplace(loop, "read line <" + pipe, "",
                  [&](const absl::StatusOr<std::string>&) { called = true; });
  const int writer = open(pipe.c_str(), O_WRONLY);
  running.reset();
  close(writer);
  loop.Run();
  EXPECT_FALSE(called);
}

TEST(ShellCommand, HandlerMayDestroyIt) {
  rpc::loop::Loop loop;
  std::string printed;
  std::optional<ShellCommand> running;
  running.emplace(loop, "echo hello", "",
                  [&](const absl::StatusOr<std::string>& output) {
                    running.reset();
                    printed = *output;
                  });
  loop.Run();
  EXPECT_EQ("hello\n", printed);
}

}  // namespace
}  // namespace rpcctl
