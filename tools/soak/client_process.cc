#include "tools/soak/client_process.h"

#include <signal.h>
#include <sys/wait.h>

#include <cerrno>

#include "absl/log/absl_check.h"

namespace soak {
namespace {

// Waits for the process to change its state and returns its status. Goes on
// when a signal interrupts the wait.
int WaitFor(pid_t pid, int options) {
  int status;
  pid_t changed;
  do {
    changed = waitpid(pid, &status, options);
  } while (changed < 0 && errno == EINTR);
  ABSL_PCHECK(changed == pid) << "waitpid";
  return status;
}

}  // namespace

ClientProcess::ClientProcess(
    const std::vector<std::string>& words,
    const std::vector<cli::InheritedDescriptor>& inherited)
    : pid_(cli::StartProcess(words, inherited)) {}

ClientProcess::~ClientProcess() {
  Kill();
}

void ClientProcess::Stop() {
  if (pid_ == 0 || stopped_)
    return;
  ABSL_PCHECK(kill(pid_, SIGSTOP) == 0) << "kill";
  ABSL_CHECK(WIFSTOPPED(WaitFor(pid_, WUNTRACED)))
      << "a client has ended by itself";
  stopped_ = true;
}

void ClientProcess::Continue() {
  if (pid_ == 0 || !stopped_)
    return;
  ABSL_PCHECK(kill(pid_, SIGCONT) == 0) << "kill";
  stopped_ = false;
}

void ClientProcess::Kill() {
  if (pid_ == 0)
    return;
  kill(pid_, SIGKILL);
  WaitFor(pid_, 0);
  pid_ = 0;
}

bool ClientProcess::HasEnded() {
  int status;
  if (pid_ != 0 && waitpid(pid_, &status, WNOHANG) == pid_)
    pid_ = 0;
  return pid_ == 0;
}

}  // namespace soak
