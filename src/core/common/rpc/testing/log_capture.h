// Takes the place of the log while it lives, and keeps what is recorded. There
// is one at a time.

#ifndef CORE_COMMON_RPC_TESTING_LOG_CAPTURE_H_
#define CORE_COMMON_RPC_TESTING_LOG_CAPTURE_H_

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

#include "base/logging.h"

namespace torvane {

struct LogRecord {
  int severity;
  std::string file;
  int line;
  // Without the line break.
  std::string text;
};

class LogCapture {
 public:
  LogCapture() {
    records_.clear();
    logging::SetLogMessageHandler(&Keep);
  }
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;
  ~LogCapture() {
    logging::SetLogMessageHandler(nullptr);
    logging::SetMinLogLevel(logging::LOGGING_INFO);
  }

  const std::vector<LogRecord>& records() const { return records_; }

  // The texts of the records since the last time.
  std::vector<std::string> TakeTexts() {
    std::vector<std::string> texts;
    for (LogRecord& record : std::exchange(records_, {}))
      texts.push_back(std::move(record.text));
    return texts;
  }

 private:
  static bool Keep(int severity,
                   const char* file,
                   int line,
                   size_t text_start,
                   const std::string& record) {
    records_.push_back(
        {severity, file, line,
         record.substr(text_start, record.size() - text_start - 1)});
    return true;
  }

  static inline std::vector<LogRecord> records_;
};

}  // namespace torvane

#endif  // CORE_COMMON_RPC_TESTING_LOG_CAPTURE_H_
