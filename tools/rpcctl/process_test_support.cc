#include "tools/rpcctl/process_test_support.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "gtest/gtest.h"
#include "tools/cli/child_process.h"

namespace rpcctl {
namespace {

// Ends the test program on failure, since no test can go on without the
// process.
void Check(bool success, const char* what) {
  if (success)
    return;
  std::perror(what);
  std::abort();
}

// Waits until there is something to read or the other end is closed. False if
// that takes too long.
bool AwaitReadable(int descriptor) {
  constexpr int kLongMilliseconds = 60'000;
  pollfd polled = {descriptor, POLLIN, 0};
  const bool readable = poll(&polled, 1, kLongMilliseconds) == 1;
  EXPECT_TRUE(readable) << "the process says nothing";
  return readable;
}

// Appends everything up to the end of the stream, if it is not closed. False if
// that takes too long.
bool ReadAll(int descriptor, std::string& text) {
  if (descriptor < 0)
    return true;
  char buffer[4096];
  while (AwaitReadable(descriptor)) {
    const ssize_t size = read(descriptor, buffer, sizeof(buffer));
    if (size <= 0)
      return true;
    text.append(buffer, size);
  }
  return false;
}

void Close(int& descriptor) {
  if (descriptor >= 0)
    close(descriptor);
  descriptor = -1;
}

std::string ReadLineOf(int descriptor) {
  std::string line;
  char c;
  while (AwaitReadable(descriptor) && read(descriptor, &c, 1) == 1 && c != '\n')
    line.push_back(c);
  return line;
}

void OpenPipe(int& reading, int& writing) {
  int ends[2];
  Check(pipe2(ends, O_CLOEXEC) == 0, "pipe2");
  reading = ends[0];
  writing = ends[1];
}

// The end of the process, and that of the person who sits at it.
void OpenTerminal(int& process, int& person) {
  person = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
  Check(person >= 0, "posix_openpt");
  Check(grantpt(person) == 0, "grantpt");
  Check(unlockpt(person) == 0, "unlockpt");
  process = open(ptsname(person), O_RDWR | O_NOCTTY | O_CLOEXEC);
  Check(process >= 0, "the terminal");
}

}  // namespace

Process::Process(const std::vector<std::string>& words, Terminal terminal) {
  // Writing to a process that has ended must not end the test.
  signal(SIGPIPE, SIG_IGN);
  int input;
  int output;
  int errors;
  if (terminal == Terminal::kInput)
    OpenTerminal(input, input_);
  else
    OpenPipe(input, input_);
  if (terminal == Terminal::kOutput)
    OpenTerminal(output, output_);
  else
    OpenPipe(output_, output);
  OpenPipe(errors_, errors);

  pid_ = cli::StartProcess(words, {{input, STDIN_FILENO},
                                   {output, STDOUT_FILENO},
                                   {errors, STDERR_FILENO}});
  close(input);
  close(output);
  close(errors);
}

Process::~Process() {
  if (pid_ == 0)
    return;
  Signal(SIGKILL);
  Wait();
}

void Process::Write(std::string_view text) {
  EXPECT_EQ(static_cast<ssize_t>(text.size()),
            write(input_, text.data(), text.size()));
}

void Process::CloseInput() {
  Close(input_);
}

void Process::CloseOutput() {
  Close(output_);
}

void Process::CloseErrors() {
  Close(errors_);
}

std::string Process::ReadLine() {
  return ReadLineOf(output_);
}

std::string Process::ReadErrorLine() {
  return ReadLineOf(errors_);
}

void Process::Signal(int signal) const {
  kill(pid_, signal);
}

Process::Result Process::Wait() {
  CloseInput();
  Result result;
  if (!ReadAll(output_, result.output) || !ReadAll(errors_, result.errors))
    Signal(SIGKILL);
  CloseOutput();
  CloseErrors();
  int status;
  Check(waitpid(pid_, &status, 0) == pid_, "waitpid");
  pid_ = 0;
  result.exit_code =
      WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
  return result;
}

Process::Result RunToEnd(const std::vector<std::string>& words) {
  return Process(words).Wait();
}

}  // namespace rpcctl
