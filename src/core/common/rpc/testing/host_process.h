// A host in a process of its own, forked from the test.
//
//   torvane::HostProcess host([&](const std::function<void()>& ready) {
//     rpc::loop::Loop loop;
//     rpc::transport::Server server(loop);
//     if (server.Listen(path).ok()) {
//       ready();
//       loop.Run();
//     }
//   });
//
// Ownership: the test's. The process is killed and reaped when this object is
// destroyed, and killed when the thread that made it ends.
//
// Failure: a host that ends before it is ready ends the test's process.

#ifndef CORE_COMMON_RPC_TESTING_HOST_PROCESS_H_
#define CORE_COMMON_RPC_TESTING_HOST_PROCESS_H_

#include <signal.h>
#include <sys/prctl.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>

#include "absl/log/absl_check.h"

namespace torvane {

class HostProcess {
 public:
  // Runs in the process, which ends when it returns. It must call `ready` when
  // clients can connect; the constructor waits for that.
  using Host = std::function<void(const std::function<void()>& ready)>;

  explicit HostProcess(const Host& host) {
    int ends[2];
    ABSL_PCHECK(pipe(ends) == 0);
    pid_ = fork();
    ABSL_PCHECK(pid_ >= 0);
    if (pid_ == 0) {
      prctl(PR_SET_PDEATHSIG, SIGKILL);
      host([ready = ends[1]] { ABSL_PCHECK(write(ready, "!", 1) == 1); });
      _exit(0);
    }
    close(ends[1]);
    char byte;
    ABSL_CHECK(read(ends[0], &byte, 1) == 1) << "the host is not ready";
    close(ends[0]);
  }
  HostProcess(const HostProcess&) = delete;
  HostProcess& operator=(const HostProcess&) = delete;
  ~HostProcess() {
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
  }

 private:
  pid_t pid_;
};

}  // namespace torvane

#endif  // CORE_COMMON_RPC_TESTING_HOST_PROCESS_H_
