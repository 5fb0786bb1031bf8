// How a piece of code ends the process.
//
// Death tests match what a dying process prints, which holds only the last part
// of the file name. This runs the code in a child process and returns the fatal
// record whole.

#ifndef CORE_COMMON_RPC_TESTING_FATAL_RECORD_H_
#define CORE_COMMON_RPC_TESTING_FATAL_RECORD_H_

#include <functional>
#include <string>

namespace torvane {

struct FatalRecord {
  std::string file;
  int line = 0;
  std::string text;
  // The signal that ended the child, or 0 where it ended by itself.
  int signal = 0;
};

// The child leaves with status 0 where `code` returns; the record is then
// empty.
FatalRecord FatalRecordOf(const std::function<void()>& code);

}  // namespace torvane

#endif  // CORE_COMMON_RPC_TESTING_FATAL_RECORD_H_
