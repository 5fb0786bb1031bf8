// Runs code that must end the process, and returns the record that it logs.
//
// A death test sees only what the process prints, in which the file name is cut
// to its last part. This runs the code in a child process and returns file,
// line and text of its fatal record.

#ifndef CORE_COMMON_RPC_TESTING_FATAL_RECORD_H_
#define CORE_COMMON_RPC_TESTING_FATAL_RECORD_H_

#include <functional>
#include <string>

namespace torvane {

struct FatalRecord {
  std::string file;
  int line = 0;
  std::string text;
  // The signal that ended the child, or 0 if it exited.
  int signal = 0;
};

// If `code` returns, the child exits with status 0, and the record is empty.
FatalRecord FatalRecordOf(const std::function<void()>& code);

}  // namespace torvane

#endif  // CORE_COMMON_RPC_TESTING_FATAL_RECORD_H_
