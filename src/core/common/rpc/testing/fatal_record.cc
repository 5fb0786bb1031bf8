#include "core/common/rpc/testing/fatal_record.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <sstream>

#include "absl/base/log_severity.h"
#include "absl/log/log_entry.h"
#include "absl/log/log_sink.h"
#include "absl/log/log_sink_registry.h"

namespace torvane {
namespace {

// Writes each fatal record to a pipe: file, line and text, a line each.
class PipeSink : public absl::LogSink {
 public:
  explicit PipeSink(int pipe) : pipe_(pipe) {}

  void Send(const absl::LogEntry& entry) override {
    // Abseil sends a fatal record twice, the second time with a stack trace.
    if (entry.log_severity() != absl::LogSeverity::kFatal || is_written_)
      return;
    is_written_ = true;
    std::ostringstream record;
    record << entry.source_filename() << '\n'
           << entry.source_line() << '\n'
           << entry.text_message() << '\n';
    const std::string bytes = record.str();
    if (write(pipe_, bytes.data(), bytes.size()) < 0)
      abort();
  }

 private:
  const int pipe_;
  bool is_written_ = false;
};

[[noreturn]] void RunInChild(const std::function<void()>& code, int pipe) {
  // Keeps the record that Abseil itself prints out of the test's output.
  dup2(open("/dev/null", O_WRONLY), STDERR_FILENO);
  absl::AddLogSink(new PipeSink(pipe));
  code();
  _exit(0);
}

std::string ReadAll(int pipe) {
  std::string bytes;
  char buffer[1024];
  for (ssize_t n; (n = read(pipe, buffer, sizeof(buffer))) > 0;)
    bytes.append(buffer, n);
  return bytes;
}

}  // namespace

FatalRecord FatalRecordOf(const std::function<void()>& code) {
  int ends[2];
  if (pipe(ends) != 0)
    abort();
  const pid_t child = fork();
  if (child == 0)
    RunInChild(code, ends[1]);
  close(ends[1]);
  std::istringstream written(ReadAll(ends[0]));
  close(ends[0]);
  int status = 0;
  waitpid(child, &status, 0);

  FatalRecord record;
  record.signal = WIFSIGNALED(status) ? WTERMSIG(status) : 0;
  std::string line;
  std::getline(written, record.file);
  if (std::getline(written, line))
    record.line = std::stoi(line);
  std::getline(written, record.text, '\0');
  if (record.text.ends_with('\n'))
    record.text.pop_back();
  return record;
}

}  // namespace torvane
