#include "tools/cli/child_process.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <unistd.h>

#include "absl/log/absl_check.h"

namespace cli {
namespace {

constexpr int kCannotExecute = 127;

// Runs in the new process between fork and exec, so it may call only functions
// that are safe in a signal handler.
[[noreturn]] void Become(char* const* argv,
                         const std::vector<InheritedDescriptor>& descriptors,
                         pid_t parent) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  // If the parent ended before prctl() took effect, nothing will kill this
  // process, so it ends itself.
  if (getppid() != parent)
    _exit(kCannotExecute);
  for (const auto& [ours, theirs] : descriptors) {
    if (ours == theirs)
      fcntl(ours, F_SETFD, 0);
    else
      dup2(ours, theirs);
  }
  execv(argv[0], argv);
  _exit(kCannotExecute);
}

}  // namespace

pid_t StartProcess(const std::vector<std::string>& words,
                   const std::vector<InheritedDescriptor>& descriptors) {
  std::vector<char*> argv;
  argv.reserve(words.size() + 1);
  for (const std::string& word : words)
    argv.push_back(const_cast<char*>(word.c_str()));
  argv.push_back(nullptr);
  const pid_t parent = getpid();
  const pid_t pid = fork();
  ABSL_PCHECK(pid >= 0) << "fork";
  if (pid == 0)
    Become(argv.data(), descriptors, parent);
  return pid;
}

}  // namespace cli
