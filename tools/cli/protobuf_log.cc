#include "tools/cli/protobuf_log.h"

#include <google/protobuf/stubs/logging.h>

#include <string>

#include "absl/strings/match.h"
#include "base/logging.h"

namespace cli {
namespace {

logging::LogSeverity SeverityOf(google::protobuf::LogLevel level) {
  switch (level) {
    case google::protobuf::LOGLEVEL_INFO:
      return logging::LOGGING_INFO;
    case google::protobuf::LOGLEVEL_WARNING:
      return logging::LOGGING_WARNING;
    case google::protobuf::LOGLEVEL_ERROR:
    case google::protobuf::LOGLEVEL_FATAL:
      break;
  }
  // Also what is fatal: the library itself ends the process after this.
  return logging::LOGGING_ERROR;
}

void Record(google::protobuf::LogLevel level,
            const char* file,
            int line,
            const std::string& text) {
  if (absl::StrContains(text, "contains invalid UTF-8"))
    return;
  if (logging::ShouldCreateLogMessage(SeverityOf(level)))
    logging::LogMessage(file, line, SeverityOf(level)).stream() << text;
}

}  // namespace

void RecordProtobufLog() {
  google::protobuf::SetLogHandler(Record);
}

}  // namespace cli
