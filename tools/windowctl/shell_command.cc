#include "tools/windowctl/shell_command.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <memory>
#include <utility>

#include "absl/strings/str_cat.h"

namespace windowctl {
namespace {

absl::Status SystemError(int error, const char* what) {
  return absl::ErrnoToStatus(error, what);
}

// A file in memory that is read from its beginning. It takes any size, so that
// nobody needs to write while the command reads. Negative on failure.
int MakeInput(const std::string& text) {
  const int file = memfd_create("input", MFD_CLOEXEC);
  if (file < 0)
    return file;
  if (write(file, text.data(), text.size()) !=
          static_cast<ssize_t>(text.size()) ||
      lseek(file, 0, SEEK_SET) != 0) {
    close(file);
    return -1;
  }
  return file;
}

// A descriptor that becomes readable when the process ends. (The wrapper in
// glibc 2.36 cannot be linked from C++.)
int OpenProcess(pid_t pid) {
  return static_cast<int>(syscall(SYS_pidfd_open, pid, 0));
}

absl::Status HowItEnded(int status) {
  if (WIFSIGNALED(status)) {
    return absl::AbortedError(
        absl::StrCat("the command was ended by signal ", WTERMSIG(status)));
  }
  if (WEXITSTATUS(status) != 0) {
    return absl::AbortedError(
        absl::StrCat("the command ended with exit code ", WEXITSTATUS(status)));
  }
  return absl::OkStatus();
}

// Keeps itself alive through the operations that are under way.
class ShellCommand : public std::enable_shared_from_this<ShellCommand> {
 public:
  ShellCommand(asio::io_context& loop, ShellOutput then)
      : process_(loop), output_(loop), then_(std::move(then)) {}

  // On success `then` is called later.
  absl::Status Start(const std::string& command, const std::string& input) {
    const int input_file = MakeInput(input);
    if (input_file < 0)
      return SystemError(errno, "no input for the command");
    int output[2];
    if (pipe2(output, O_CLOEXEC) != 0) {
      close(input_file);
      return SystemError(errno, "no output for the command");
    }
    const int error = Spawn(command, input_file, output[1]);
    close(input_file);
    close(output[1]);
    std::error_code ignored;
    output_.assign(output[0], ignored);
    if (error != 0)
      return SystemError(error, "the command cannot be started");
    Read();
    return absl::OkStatus();
  }

 private:
  int Spawn(const std::string& command, int input, int output) {
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, input, STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
    const char* const argv[] = {"/bin/sh", "-c", command.c_str(), nullptr};
    const int error = posix_spawn(&pid_, argv[0], &actions, nullptr,
                                  const_cast<char* const*>(argv), environ);
    posix_spawn_file_actions_destroy(&actions);
    return error;
  }

  void Read() {
    auto self = shared_from_this();
    output_.async_read_some(asio::buffer(chunk_),
                            [self](std::error_code error, size_t size) {
                              self->text_.append(self->chunk_.data(), size);
                              error ? self->AwaitExit() : self->Read();
                            });
  }

  // Its output has ended, but it may still run.
  void AwaitExit() {
    std::error_code ignored;
    process_.assign(OpenProcess(pid_), ignored);
    auto self = shared_from_this();
    process_.async_wait(asio::posix::stream_descriptor::wait_read,
                        [self](std::error_code) { self->Finish(); });
  }

  void Finish() {
    int status = 0;
    waitpid(pid_, &status, 0);
    if (absl::Status ended = HowItEnded(status); !ended.ok())
      return then_(ended);
    then_(text_);
  }

  asio::posix::stream_descriptor process_;
  asio::posix::stream_descriptor output_;
  const ShellOutput then_;
  pid_t pid_ = 0;
  std::array<char, 4096> chunk_;
  std::string text_;
};

}  // namespace

void RunShellCommand(asio::io_context& loop,
                     const std::string& command,
                     const std::string& input,
                     const ShellOutput& then) {
  auto running = std::make_shared<ShellCommand>(loop, then);
  if (absl::Status started = running->Start(command, input); !started.ok())
    asio::post(loop, [=] { then(started); });
}

}  // namespace windowctl
