// Writes what a server does into a file, as a timeline that Chrome's and
// Perfetto's viewers show (chrome://tracing, ui.perfetto.dev):
//
//   auto trace = rpc::trace::TraceFile::Open(loop, "windows.trace.json");
//   rpc::transport::ServerOptions options;
//   options.trace = trace->get();
//   rpc::transport::Server server(loop, options);
//
// Each connection is a process of the timeline, named as its client. In it
// stand its calls, streams and questions, each as long as it took and with its
// status where that is not OK, and its events. Times are in microseconds since
// the file was opened.
//
// The format is the JSON array of
// https://docs.google.com/document/d/1CvAClvFfyA5R-PhYUmn5OOQtYMH4h6I0nSsKchNAySU:
// an event for each line. Its end may be missing, so the file of a program that
// was killed can be read as well. What was begun less than kMaxDelay before is
// missing then.
//
// Ownership: the caller's; outlives the server that writes to it.
//
// Sequence: that of the server. It does not wait for the disk other than
// write(2) on a file does.
//
// Failure: Open() says why it cannot. A file that takes no more, since the disk
// is full or it has reached its longest, gets nothing more; a record says so,
// once.

#ifndef CORE_COMMON_RPC_TRACE_TRACE_FILE_H_
#define CORE_COMMON_RPC_TRACE_TRACE_FILE_H_

#include <chrono>
#include <cstddef>
#include <memory>
#include <string>

#include "absl/status/status.h"
#include "absl/status/statusor.h"
#include "core/common/rpc/loop/scoped_fd.h"
#include "core/common/rpc/loop/sequence.h"
#include "core/common/rpc/serving/trace.h"

namespace rpc::trace {

class TraceFile final : public serving::Trace {
 public:
  // A call takes some 200 bytes: these are 300,000 calls.
  static constexpr size_t kMaxBytes = 64 << 20;

  // After this what has happened is in the file.
  static constexpr std::chrono::milliseconds kMaxDelay{250};

  // Makes the file, which only this user may read, or empties it. It will be
  // no longer than `max_bytes`. FAILED_PRECONDITION when it is no regular file:
  // writing to another one could wait for somebody. ALREADY_EXISTS when another
  // TraceFile writes it, which has it locked.
  static absl::StatusOr<std::unique_ptr<TraceFile>> Open(
      loop::Sequence& sequence,
      const std::string& path,
      size_t max_bytes = kMaxBytes);

  TraceFile(const TraceFile&) = delete;
  TraceFile& operator=(const TraceFile&) = delete;

  ~TraceFile() override;

  // Writes what is left, and the end of the array; what comes later is dropped.
  // For programs that end without destructors, else the destructor does it.
  void Close();

  // serving::Trace:
  void Begin(const serving::Span& span) override;
  void End(const serving::Span& span, const absl::Status& status) override;
  void Event(const serving::Span& stream, size_t bytes) override;

 private:
  enum class State { kWriting, kFull, kBroken, kClosed };

  TraceFile(loop::Sequence& sequence,
            const std::string& path,
            loop::ScopedFd file,
            size_t max_bytes);

  void Append(const serving::Span& span,
              char phase,
              const std::string& arguments);
  void AppendLine(const std::string& line);
  void WriteSoon();
  void Write();
  void Stop(State state, const std::string& why);

  loop::Sequence& sequence_;
  const loop::Clock::time_point start_;
  const std::string path_;
  const loop::ScopedFd file_;
  const size_t max_bytes_;

  State state_ = State::kWriting;
  // Bytes of the file, with those that are not written yet.
  size_t bytes_ = 0;
  std::string unwritten_;
  std::unique_ptr<loop::Timer> write_timer_;
};

}  // namespace rpc::trace

#endif  // CORE_COMMON_RPC_TRACE_TRACE_FILE_H_
