#include "base/logging.h"

#include <sys/time.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <string_view>
#include <utility>

#include "base/immediate_crash.h"

namespace logging {

namespace {

// Constant-initialised, since records may be logged during static
// initialisation.
constinit std::atomic<int> g_min_log_level = LOGGING_INFO;
constinit std::atomic<LogMessageHandlerFunction> g_handler = nullptr;

const char* SeverityName(LogSeverity severity) {
  switch (severity) {
    case LOGGING_INFO:
      return "INFO";
    case LOGGING_WARNING:
      return "WARNING";
    case LOGGING_ERROR:
      return "ERROR";
    case LOGGING_FATAL:
      return "FATAL";
  }
  return "UNKNOWN";
}

void WriteTime(std::ostream& out) {
  timeval now;
  gettimeofday(&now, nullptr);
  tm local;
  localtime_r(&now.tv_sec, &local);

  char text[sizeof "MMDD/HHMMSS"];
  strftime(text, sizeof text, "%m%d/%H%M%S", &local);
  char fraction[sizeof ".123456"];
  snprintf(fraction, sizeof fraction, ".%06d", static_cast<int>(now.tv_usec));
  out << text << fraction;
}

// One write(); more only if the system writes part of the record.
void WriteToStandardError(std::string_view record) {
  while (!record.empty()) {
    const ssize_t written = write(STDERR_FILENO, record.data(), record.size());
    if (written < 0 && errno == EINTR)
      continue;
    if (written <= 0)
      return;
    record.remove_prefix(static_cast<size_t>(written));
  }
}

}  // namespace

void SetMinLogLevel(int level) {
  g_min_log_level.store(std::min(level, LOGGING_FATAL),
                        std::memory_order_relaxed);
}

bool ShouldCreateLogMessage(int severity) {
  return severity >= g_min_log_level.load(std::memory_order_relaxed);
}

void SetLogMessageHandler(LogMessageHandlerFunction handler) {
  g_handler.store(handler, std::memory_order_release);
}

LogMessage::LogMessage(const char* file, int line, LogSeverity severity)
    : file_(file), line_(line), severity_(severity) {
  stream_ << '[';
  WriteTime(stream_);
  stream_ << ':' << SeverityName(severity) << ':' << file << '(' << line
          << ")] ";
  message_start_ = stream_.view().size();
}

LogMessage::~LogMessage() {
  stream_ << '\n';
  const std::string record = std::move(stream_).str();
  const LogMessageHandlerFunction handler =
      g_handler.load(std::memory_order_acquire);
  const bool swallowed =
      handler && handler(severity_, file_, line_, message_start_, record);
  if (!swallowed)
    WriteToStandardError(record);
  if (severity_ == LOGGING_FATAL)
    base::ImmediateCrash();
}

}  // namespace logging
