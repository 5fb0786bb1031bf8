#include "tools/windowctl/process_test_support.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

#include "gtest/gtest.h"

namespace windowctl {
namespace {

// A test without its process has nothing to say.
void Check(bool success, const char* what) {
  if (success)
    return;
  std::perror(what);
  std::abort();
}

std::string ReadAll(FILE* file) {
  std::string text;
  char buffer[4096];
  while (size_t size = fread(buffer, 1, sizeof(buffer), file))
    text.append(buffer, size);
  return text;
}

std::string ReadLineOf(FILE* file) {
  std::string line;
  for (int c; (c = getc(file)) != EOF && c != '\n';)
    line.push_back(static_cast<char>(c));
  return line;
}

}  // namespace

Process::Process(const std::vector<std::string>& words) {
  // A process that goes away must not take the test with it.
  signal(SIGPIPE, SIG_IGN);
  int input[2];
  int output[2];
  Check(pipe2(input, O_CLOEXEC) == 0, "pipe2");
  Check(pipe2(output, O_CLOEXEC) == 0, "pipe2");
  int errors[2];
  Check(pipe2(errors, O_CLOEXEC) == 0, "pipe2");

  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, input[0], STDIN_FILENO);
  posix_spawn_file_actions_adddup2(&actions, output[1], STDOUT_FILENO);
  posix_spawn_file_actions_adddup2(&actions, errors[1], STDERR_FILENO);
  std::vector<char*> argv;
  argv.reserve(words.size() + 1);
  for (const std::string& word : words)
    argv.push_back(const_cast<char*>(word.c_str()));
  argv.push_back(nullptr);
  Check(
      posix_spawn(&pid_, argv[0], &actions, nullptr, argv.data(), environ) == 0,
      argv[0]);
  posix_spawn_file_actions_destroy(&actions);

  close(input[0]);
  close(output[1]);
  close(errors[1]);
  input_ = input[1];
  output_ = fdopen(output[0], "r");
  errors_ = fdopen(errors[0], "r");
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
  if (input_ >= 0)
    close(input_);
  input_ = -1;
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
  result.output = ReadAll(output_);
  result.errors = ReadAll(errors_);
  int status;
  Check(waitpid(pid_, &status, 0) == pid_, "waitpid");
  pid_ = 0;
  result.exit_code =
      WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
  fclose(output_);
  fclose(errors_);
  return result;
}

Process::Result RunToEnd(const std::vector<std::string>& words) {
  return Process(words).Wait();
}

}  // namespace windowctl
