// Starts a program in a process that does not outlive the one that started it,
// however that one ends.
//
//   pid_t pid = cli::StartProcess({"/path/to/windowctl", "methods"},
//                                 {{pipe_end, STDOUT_FILENO}});
//
// Ownership: the caller waits for the process.
//
// Sequence: a thread that does not end early, such as the main one: the process
// is killed when the thread that has started it ends.
//
// Failure: ends this process when there can be no other. A program that can't
// be executed makes the new one end with exit code 127.

#ifndef TOOLS_CLI_CHILD_PROCESS_H_
#define TOOLS_CLI_CHILD_PROCESS_H_

#include <sys/types.h>

#include <string>
#include <vector>

namespace cli {

// The descriptor `ours` of this process is `theirs` in the new one. The two may
// be the same number.
struct InheritedDescriptor {
  int ours;
  int theirs;
};

// The first word is the program's path. The process gets the descriptors named,
// in this order, besides those that have no close-on-exec flag.
pid_t StartProcess(const std::vector<std::string>& words,
                   const std::vector<InheritedDescriptor>& descriptors);

}  // namespace cli

#endif  // TOOLS_CLI_CHILD_PROCESS_H_
