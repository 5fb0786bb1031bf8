#include "bench/support/process_pair.h"

#include <sched.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

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
    {"unary", Mode::kUnary},       {"pipelined", Mode::kPipelined},
    {"question", Mode::kQuestion}, {"timed-question", Mode::kTimedQuestion},
    {"fanout", Mode::kFanout},     {"memory", Mode::kMemory},
};

Mode ModeOf(std::string_view name) {
  for (const NamedMode& named : kModes) {
    if (named.name == name)
      return named.mode;
  }
  Fail("unknown mode '" + std::string(name) + "'");
}

// The browser asks questions, and it is its memory that counts.
bool ServerMeasures(Mode mode) {
  return mode == Mode::kQuestion || mode == Mode::kTimedQuestion ||
         mode == Mode::kMemory;
}

// The last one that this process may use: the first has more interrupts.
void BindToOneCore() {
  cpu_set_t allowed;
  if (sched_getaffinity(0, sizeof(allowed), &allowed) != 0)
    Fail("sched_getaffinity");
  int last = CPU_SETSIZE - 1;
  while (!CPU_ISSET(last, &allowed))
    --last;
  cpu_set_t one;
  CPU_ZERO(&one);
  CPU_SET(last, &one);
  if (sched_setaffinity(0, sizeof(one), &one) != 0)
    Fail("sched_setaffinity");
}

double CpuTimeOf(clockid_t clock) {
  timespec time;
  if (clock_gettime(clock, &time) != 0)
    Fail("clock_gettime");
  return static_cast<double>(time.tv_sec) * 1e9 +
         static_cast<double>(time.tv_nsec);
}

std::string MakeFolder() {
  std::string folder =
      std::filesystem::temp_directory_path() / "rpc-bench.XXXXXX";
  if (!mkdtemp(folder.data()))
    Fail("mkdtemp");
  return folder;
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

double ProcessPair::CpuTime() const {
  clockid_t others;
  if (clock_getcpuclockid(other_, &others) != 0)
    Fail("clock_getcpuclockid");
  return CpuTimeOf(CLOCK_PROCESS_CPUTIME_ID) + CpuTimeOf(others);
}

void ProcessPair::End() {
  fflush(nullptr);
  if (other_ != 0) {
    kill(other_, SIGKILL);
    waitpid(other_, nullptr, 0);
    std::filesystem::remove_all(
        std::filesystem::path(socket_path_).parent_path());
  }
  _exit(0);
}

int RunPair(int argc, char** argv, const Halves& halves) {
  if (argc < 2)
    Fail("name a mode");
  const Mode mode = ModeOf(argv[1]);
  if (argc < 3 || std::string_view(argv[2]) != "--all-cores")
    BindToOneCore();

  const std::string socket_path = MakeFolder() + "/socket";
  int channel[2];
  if (socketpair(AF_UNIX, SOCK_STREAM, 0, channel) != 0)
    Fail("socketpair");
  const pid_t child = fork();
  if (child < 0)
    Fail("fork");
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
  fprintf(stderr, "benchmark failed: %s (%s)\n", what.c_str(), strerror(errno));
  _exit(1);
}

}  // namespace bench
