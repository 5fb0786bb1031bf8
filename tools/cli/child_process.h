// Starts a program in a child process that is killed when its parent ends,
// however that happens.
//
//   pid_t pid = cli::StartProcess({"/path/to/windowctl", "methods"},
//                                 {{pipe_end, STDOUT_FILENO}});
//
// Ownership: the caller must wait for the process.
//
// Sequence: a thread that does not end early, such as the main one: the child
// is killed when the thread that has started it ends.
//
// Failure: ends this process when none can be forked. A program that can't be
// executed makes the child end with exit code 127.

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

// The first word is the program's path. `descriptors` are passed on in this
// order; those without a close-on-exec flag are inherited anyway.
pid_t StartProcess(const std::vector<std::string>& words,
                   const std::vector<InheritedDescriptor>& descriptors);

}  // namespace cli

#endif  // TOOLS_CLI_CHILD_PROCESS_H_
