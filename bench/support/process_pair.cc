#include "bench/support/process_pair.h"

#include <sched.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string_view>
#include <utility>

namespace bench {
namespace {

struct NamedMode {
  std::string_view name;
  Mode mode;
};

constexpr NamedMode kModes[] = {
    {"unary", Mode::kUnary},
    {"traced-unary", Mode::kTracedUnary},
    {"pipelined", Mode::kPipelined},
    {"question", Mode::kQuestion},
    {"timed-question", Mode::kTimedQuestion},
    {"fanout", Mode::kFanout},
    {"memory", Mode::kMemory},
};

bool Has(const Halves& halves, Mode mode) {
  return std::ranges::find(halves.modes, mode) != halves.modes.end();
}

[[noreturn]] void WrongUsage(const char* program, const Halves& halves) {
  fprintf(stderr, "usage: %s MODE [--all-cores]\nmodes:", program);
  for (const NamedMode& named : kModes) {
    if (Has(halves, named.mode))
      fprintf(stderr, " %s", named.name.data());
  }
  fprintf(stderr, "\n");
  _exit(2);
}

struct Arguments {
  Mode mode;
  bool all_cores;
};

Arguments ReadArguments(int argc, char** argv, const Halves& halves) {
  const bool all_cores =
      argc == 3 && std::string_view(argv[2]) == "--all-cores";
  if (argc == 2 || all_cores) {
    for (const NamedMode& named : kModes) {
      if (named.name == argv[1] && Has(halves, named.mode))
        return {named.mode, all_cores};
    }
  }
  WrongUsage(argv[0], halves);
}

// In these modes the server starts the operations, or its memory is measured.
bool ServerMeasures(Mode mode) {
  return mode == Mode::kQuestion || mode == Mode::kTimedQuestion ||
         mode == Mode::kMemory;
}

// Takes the last core that this process may use, since the first ones handle
// more interrupts.
void BindToOneCore() {
  cpu_set_t allowed;
  if (sched_getaffinity(0, sizeof(allowed), &allowed) != 0)
    FailWithErrno("sched_getaffinity");
  int last = CPU_SETSIZE - 1;
  while (!CPU_ISSET(last, &allowed))
    --last;
  cpu_set_t one;
  CPU_ZERO(&one);
  CPU_SET(last, &one);
  if (sched_setaffinity(0, sizeof(one), &one) != 0)
    FailWithErrno("sched_setaffinity");
}

// The socket and its folder. The process that measures makes the folder and
// removes both; in the other process the paths are empty.
struct Paths {
  std::string folder;
  std::string socket;
};
Paths& OwnPaths() {
  static Paths paths;
  return paths;
}

void MakePaths() {
  Paths& paths = OwnPaths();
  paths.folder = std::filesystem::temp_directory_path() / "rpc-bench.XXXXXX";
  if (!mkdtemp(paths.folder.data()))
    FailWithErrno("mkdtemp");
  paths.socket = paths.folder + "/socket";
}

// Called in a signal handler.
[[noreturn]] void Exit(int code) {
  unlink(OwnPaths().socket.c_str());
  rmdir(OwnPaths().folder.c_str());
  _exit(code);
}

// Handles SIGCHLD. The other process may end with success; if it ends in
// another way, the benchmark has failed.
void OnChildEnded(int) {
  int status = 0;
  if (waitpid(-1, &status, WNOHANG) <= 0 || status == 0)
    return;
  constexpr std::string_view kText =
      "benchmark failed: the other process has ended\n";
  (void)!write(STDERR_FILENO, kText.data(), kText.size());
  Exit(1);
}

// fork(), but ends the process on failure.
pid_t ForkOther() {
  signal(SIGCHLD, OnChildEnded);
  const pid_t child = fork();
  if (child < 0)
    FailWithErrno("fork");
  if (child == 0) {
    OwnPaths() = {};
    signal(SIGCHLD, SIG_DFL);
    prctl(PR_SET_PDEATHSIG, SIGKILL);
  }
  return child;
}

}  // namespace

ProcessPair::ProcessPair(Mode mode,
                         std::string socket_path,
                         int channel,
                         pid_t other)
    : mode_(mode),
      socket_path_(std::move(socket_path)),
      channel_(channel),
      other_(other) {}

void ProcessPair::Signal() {
  if (write(channel_, "!", 1) != 1)
    Fail("the other process is gone");
}

void ProcessPair::Await() {
  char byte;
  if (read(channel_, &byte, 1) != 1)
    Fail("the other process is gone");
}

void ProcessPair::End() {
  fflush(nullptr);
  if (other_ != 0) {
    signal(SIGCHLD, SIG_DFL);
    kill(other_, SIGKILL);
    waitpid(other_, nullptr, 0);
  }
  Exit(0);
}

int RunPair(int argc, char** argv, const Halves& halves) {
  const auto [mode, all_cores] = ReadArguments(argc, argv, halves);
  if (!all_cores)
    BindToOneCore();

  MakePaths();
  const std::string socket_path = OwnPaths().socket;
  int channel[2];
  if (socketpair(AF_UNIX, SOCK_STREAM, 0, channel) != 0)
    FailWithErrno("socketpair");
  const pid_t child = ForkOther();
  const bool measures = child != 0;
  close(channel[measures ? 1 : 0]);
  ProcessPair pair(mode, socket_path, channel[measures ? 0 : 1], child);
  if (measures == ServerMeasures(mode))
    halves.serve(pair);
  else
    halves.call(pair);
  pair.End();
}

void Fail(const std::string& what) {
  fprintf(stderr, "benchmark failed: %s\n", what.c_str());
  Exit(1);
}

void FailWithErrno(const std::string& what) {
  Fail(what + ": " + strerror(errno));
}

}  // namespace bench
