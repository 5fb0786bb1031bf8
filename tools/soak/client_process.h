// A client in a process of its own, which can be stopped and killed.
//
//   soak::ClientProcess client({"/path/to/soak", "--client", ...}, {{fd, fd}});
//   client.Stop();       // it does nothing until Continue()
//   client.Continue();
//   client.Kill();       // at once, whatever it is doing
//
// The client is killed when the process that has started it ends.
//
// Ownership: the caller's. The destructor kills the process.
//
// Sequence: the main thread, since the client is killed when the thread that
// has started it ends.
//
// Failure: a process that cannot be started ends this one.

#ifndef TOOLS_SOAK_CLIENT_PROCESS_H_
#define TOOLS_SOAK_CLIENT_PROCESS_H_

#include <sys/types.h>

#include <string>
#include <vector>

#include "tools/cli/child_process.h"

namespace soak {

class ClientProcess {
 public:
  // See cli::StartProcess().
  ClientProcess(const std::vector<std::string>& words,
                const std::vector<cli::InheritedDescriptor>& inherited);
  ClientProcess(const ClientProcess&) = delete;
  ClientProcess& operator=(const ClientProcess&) = delete;
  ~ClientProcess();

  // Stop() and Kill() return when the process has stopped or is dead,
  // Continue() when the signal is sent.
  void Stop();
  void Continue();
  void Kill();

  bool stopped() const { return stopped_; }

  // Whether it has ended by itself, which no client should.
  bool HasEnded();

 private:
  // 0 when the process has ended and has been waited for.
  pid_t pid_;
  bool stopped_ = false;
};

}  // namespace soak

#endif  // TOOLS_SOAK_CLIENT_PROCESS_H_
