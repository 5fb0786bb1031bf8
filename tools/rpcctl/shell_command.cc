#include "tools/rpcctl/shell_command.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <utility>

#include "absl/strings/str_cat.h"

namespace rpcctl {
namespace {

using rpc::loop::ScopedFd;

// The command's input, as a file in memory. Unlike a pipe it takes any size at
// once, so nothing has to be written while the command runs. Invalid on
// failure.
ScopedFd MakeInput(const std::string& text) {
  ScopedFd file(memfd_create("input", MFD_CLOEXEC));
  if (!file.is_valid() ||
      write(file.get(), text.data(), text.size()) !=
          static_cast<ssize_t>(text.size()) ||
      lseek(file.get(), 0, SEEK_SET) != 0) {
    return ScopedFd();
  }
  return file;
}

// Returns an error number, or 0 when `pid` is set.
int Spawn(const std::string& command, int input, int output, pid_t* pid) {
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, input, STDIN_FILENO);
  posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
  const char* const argv[] = {"/bin/sh", "-c", command.c_str(), nullptr};
  const int error = posix_spawn(pid, argv[0], &actions, nullptr,
                                const_cast<char* const*>(argv), environ);
  posix_spawn_file_actions_destroy(&actions);
  return error;
}

// pidfd_open(). The wrapper in glibc 2.36 cannot be linked from C++.
ScopedFd OpenProcess(pid_t pid) {
  return ScopedFd(static_cast<int>(syscall(SYS_pidfd_open, pid, 0)));
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

}  // namespace

ShellCommand::ShellCommand(rpc::loop::Loop& loop,
                           const std::string& command,
                           const std::string& input,
                           Handler on_end)
    : loop_(loop), on_end_(std::move(on_end)) {
  if (absl::Status started = Start(command, input); !started.ok()) {
    failure_ = loop.RunAfter(std::chrono::milliseconds(0),
                             [this, started] { End(started); });
  }
}

absl::Status ShellCommand::Start(const std::string& command,
                                 const std::string& input) {
  const ScopedFd input_file = MakeInput(input);
  if (!input_file.is_valid())
    return absl::ErrnoToStatus(errno, "no input for the command");
  int output[2];
  if (pipe2(output, O_CLOEXEC) != 0)
    return absl::ErrnoToStatus(errno, "no output for the command");
  output_ = ScopedFd(output[0]);
  const ScopedFd its_output(output[1]);
  const int error = Spawn(command, input_file.get(), its_output.get(), &pid_);
  if (error != 0)
    return absl::ErrnoToStatus(error, "the command cannot be started");
  watch_.emplace(loop_, output_.get(), [this] { Read(); });
  return absl::OkStatus();
}

void ShellCommand::Read() {
  std::array<char, 4096> chunk;
  const ssize_t size = read(output_.get(), chunk.data(), chunk.size());
  if (size > 0) {
    text_.append(chunk.data(), static_cast<size_t>(size));
    return;
  }
  // The command has closed its output, but may still run.
  process_ = OpenProcess(pid_);
  if (!process_.is_valid())
    return Finish();
  watch_.emplace(loop_, process_.get(), [this] { Finish(); });
}

void ShellCommand::Finish() {
  int status = 0;
  waitpid(pid_, &status, 0);
  if (absl::Status ended = HowItEnded(status); !ended.ok())
    return End(ended);
  End(std::move(text_));
}

void ShellCommand::End(const absl::StatusOr<std::string>& output) {
  watch_.reset();
  std::exchange(on_end_, nullptr)(output);
}

}  // namespace rpcctl
