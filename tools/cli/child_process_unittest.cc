#include "tools/cli/child_process.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>

#include "gtest/gtest.h"

namespace cli {
namespace {

int ExitCodeOf(pid_t pid) {
  int status;
  EXPECT_EQ(pid, waitpid(pid, &status, 0));
  return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

class ChildProcessTest : public ::testing::Test {
 protected:
  ChildProcessTest() { EXPECT_EQ(0, pipe2(pipe_, O_CLOEXEC)); }
  ~ChildProcessTest() override {
    close(pipe_[0]);
    close(pipe_[1]);
  }

  std::string Read() const {
    char buffer[100];
    const ssize_t size = read(pipe_[0], buffer, sizeof(buffer));
    return {buffer, static_cast<size_t>(size)};
  }

  int pipe_[2];
};

TEST_F(ChildProcessTest, RunsTheProgramWithItsWords) {
  EXPECT_EQ(
      7, ExitCodeOf(StartProcess({"/bin/sh", "-c", "exit $1", "x", "7"}, {})));
}

TEST_F(ChildProcessTest, HasTheDescriptorsItIsGiven) {
  const pid_t child =
      StartProcess({"/bin/echo", "hello"}, {{pipe_[1], STDOUT_FILENO}});
  EXPECT_EQ("hello\n", Read());
  EXPECT_EQ(0, ExitCodeOf(child));

  const std::string number = std::to_string(pipe_[1]);
  const std::string script = "echo same >&" + number;
  EXPECT_EQ(0, ExitCodeOf(StartProcess({"/bin/sh", "-c", script},
                                       {{pipe_[1], pipe_[1]}})));
  EXPECT_EQ("same\n", Read());
}

TEST_F(ChildProcessTest, EndsWithItsOwnCodeWhenThereIsNoSuchProgram) {
  EXPECT_EQ(127, ExitCodeOf(StartProcess({"/nonexistent"}, {})));
}

// A child of this test starts a grandchild and is killed.
TEST_F(ChildProcessTest, GoesWithTheProcessThatHasStartedIt) {
  const pid_t child = fork();
  if (child == 0) {
    const pid_t grandchild = StartProcess({"/bin/sleep", "1000"}, {});
    (void)!write(pipe_[1], &grandchild, sizeof(grandchild));
    pause();
    _exit(0);
  }
  pid_t grandchild;
  ASSERT_EQ(static_cast<ssize_t>(sizeof(grandchild)),
            read(pipe_[0], &grandchild, sizeof(grandchild)));
  const int watch = static_cast<int>(syscall(SYS_pidfd_open, grandchild, 0));
  ASSERT_GE(watch, 0);
  kill(child, SIGKILL);
  EXPECT_EQ(-SIGKILL, ExitCodeOf(child));
  // Readable when the process has ended.
  constexpr int kLongMilliseconds = 20'000;
  pollfd polled = {watch, POLLIN, 0};
  if (poll(&polled, 1, kLongMilliseconds) != 1) {
    ADD_FAILURE() << "the process lives on";
    kill(grandchild, SIGKILL);
  }
  close(watch);
}

}  // namespace
}  // namespace cli
