// Diagnostics: one line on standard error for each thing worth telling.
//
//   LOG(WARNING) << "Window " << id << " is already answered for.";
//
// writes, to standard error and with a single write,
//
//   [1120/074833.123456:WARNING:src/core/x.cc(194)] Window 7 is already ...
//
// month and day, local time with microseconds, severity, file and line as the
// compiler named them. LOG is an expression and needs no braces in an if. The
// operands of << are evaluated only if the record is created.
//
// Ownership: a record lives within its LOG expression. Handlers are plain
// functions and file names are literals, so nobody owns anything.
//
// Sequence: everything here may be used on any thread at any time. Records of
// different threads do not interleave.
//
// Failure: a record that cannot be written is lost. A FATAL record ends the
// process.

#ifndef BASE_LOGGING_H_
#define BASE_LOGGING_H_

#include <cstddef>
#include <ostream>
#include <sstream>
#include <string>

// Newer releases of protobuf bring Abseil's macro LOG with their headers. It is
// included here, since later it would silently replace the one below.
#if __has_include(<google/protobuf/runtime_version.h>)
#include "absl/log/log.h"
#undef LOG
#endif

namespace logging {

using LogSeverity = int;
inline constexpr LogSeverity LOGGING_INFO = 0;
inline constexpr LogSeverity LOGGING_WARNING = 1;
inline constexpr LogSeverity LOGGING_ERROR = 2;
inline constexpr LogSeverity LOGGING_FATAL = 3;

// Records below `level` are no longer created, except that FATAL ones always
// are. Initially everything from INFO on is created.
void SetMinLogLevel(int level);

// Whether LOG creates records of this severity.
bool ShouldCreateLogMessage(int severity);

// Called with each finished record before it is written: `str` is the whole
// line with its line break, and the text starts at `message_start`. If it
// returns true, the record is not written. A FATAL record ends the process all
// the same.
//
// A handler runs on the thread that logs, so on several at once.
using LogMessageHandlerFunction = bool (*)(int severity,
                                           const char* file,
                                           int line,
                                           size_t message_start,
                                           const std::string& str);

// Replaces the handler; null removes it. A record that is just being finished
// on another thread may still reach the previous one.
void SetLogMessageHandler(LogMessageHandlerFunction handler);

// One record, finished and written by its destructor. `file` must outlive it.
class LogMessage {
 public:
  LogMessage(const char* file, int line, LogSeverity severity);
  LogMessage(const LogMessage&) = delete;
  LogMessage& operator=(const LogMessage&) = delete;
  ~LogMessage();

  std::ostream& stream() { return stream_; }

 private:
  const char* const file_;
  const int line_;
  const LogSeverity severity_;
  std::ostringstream stream_;
  size_t message_start_;
};

// Gives both arms of LOG's conditional the type void. & binds weaker than <<
// and stronger than ?:.
struct LogMessageVoidify {
  void operator&(std::ostream&) {}
};

}  // namespace logging

#define LOG(severity)                                               \
  !::logging::ShouldCreateLogMessage(::logging::LOGGING_##severity) \
      ? (void)0                                                     \
      : ::logging::LogMessageVoidify() &                            \
            ::logging::LogMessage(__FILE__, __LINE__,               \
                                  ::logging::LOGGING_##severity)    \
                .stream()

#endif  // BASE_LOGGING_H_
