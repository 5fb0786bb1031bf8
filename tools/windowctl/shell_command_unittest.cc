#include "tools/windowctl/shell_command.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <vector>

#include "gmock/gmock.h"
#include "gtest/gtest.h"

namespace windowctl {
namespace {

using ::testing::UnorderedElementsAre;

// Runs the command to its end.
absl::StatusOr<std::string> OutputOf(const std::string& command,
                                     const std::string& input = "") {
  asio::io_context loop;
  std::vector<absl::StatusOr<std::string>> outputs;
  RunShellCommand(loop, command, input,
                  [&](const absl::StatusOr<std::string>& output) {
                    outputs.push_back(output);
                  });
  EXPECT_TRUE(outputs.empty());
  loop.run();
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
  const std::string pipe = testing::TempDir() + "shell_command_unittest_pipe";
  unlink(pipe.c_str());
  ASSERT_EQ(0, mkfifo(pipe.c_str(), 0600));
  asio::io_context loop;
  int ended = 0;
  RunShellCommand(
      loop, "exec >&-; read line <" + pipe + "; exit $line", "",
      [&](const absl::StatusOr<std::string>& output) {
        ++ended;
        EXPECT_EQ(absl::AbortedError("the command ended with exit code 4"),
                  output.status());
      });
  // Its output ends, which makes one turn of the loop.
  loop.run_one();
  EXPECT_EQ(0, ended);
  const int writer = open(pipe.c_str(), O_WRONLY);
  EXPECT_EQ(2, write(writer, "4\n", 2));
  close(writer);
  loop.run();
  EXPECT_EQ(1, ended);
  unlink(pipe.c_str());
}

TEST(ShellCommand, SeveralRunAtOnce) {
  // The first to start can only end once the second runs as well.
  const std::string pipe = testing::TempDir() + "shell_command_unittest_both";
  unlink(pipe.c_str());
  ASSERT_EQ(0, mkfifo(pipe.c_str(), 0600));
  asio::io_context loop;
  std::vector<std::string> outputs;
  auto keep = [&](const absl::StatusOr<std::string>& output) {
    outputs.push_back(*output);
  };
  RunShellCommand(loop, "cat " + pipe, "", keep);
  RunShellCommand(loop, "echo hello >" + pipe, "", keep);
  loop.run();
  EXPECT_THAT(outputs, UnorderedElementsAre("", "hello\n"));
  unlink(pipe.c_str());
}

}  // namespace
}  // namespace windowctl
