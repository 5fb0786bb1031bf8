#include "core/common/rpc/trace/trace_file.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>
#include <string_view>
#include <utility>

#include "absl/strings/escaping.h"
#include "absl/strings/str_cat.h"
#include "absl/strings/str_replace.h"
#include "base/logging.h"

namespace rpc::trace {
namespace {

using serving::Span;
using serving::SpanKind;

// Worth a system call of their own.
constexpr size_t kWriteBytes = 64 << 10;

constexpr std::string_view kStart = "[";
constexpr std::string_view kEnd = "\n]\n";

std::string_view NameOf(SpanKind kind) {
  switch (kind) {
    case SpanKind::kConnection:
      return "connection";
    case SpanKind::kCall:
      return "call";
    case SpanKind::kStream:
      return "stream";
    case SpanKind::kQuestion:
      return "question";
  }
  return "";
}

// A string of JSON. What is not printable ASCII is shown with escapes.
std::string Quoted(std::string_view text) {
  return absl::StrCat("\"",
                      absl::StrReplaceAll(absl::CHexEscape(text),
                                          {{"\\", "\\\\"}, {"\"", "\\\""}}),
                      "\"");
}

// As JSON, with the comma before it.
std::string Arguments(std::string_view members) {
  return absl::StrCat(",\"args\":{", members, "}");
}

// Tells a span apart from the others of its connection and kind. Streams of
// different types count their questions each for itself.
std::string LocalId(const Span& span) {
  return span.kind == SpanKind::kQuestion
             ? absl::StrCat(span.name, ".", span.id)
             : absl::StrCat(span.id);
}

// Microseconds, with three digits for the nanoseconds.
std::string Timestamp(loop::Clock::duration since_start) {
  const auto ns = static_cast<uint64_t>(
      std::chrono::duration_cast<std::chrono::nanoseconds>(since_start)
          .count());
  return absl::StrCat(ns / 1000, ".", absl::Dec(ns % 1000, absl::kZeroPad3));
}

bool WriteAll(int fd, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t written = write(fd, bytes.data(), bytes.size());
    if (written < 0 && errno != EINTR) {
      return false;
    }
    if (written > 0) {
      bytes.remove_prefix(static_cast<size_t>(written));
    }
  }
  return true;
}

}  // namespace

absl::StatusOr<std::unique_ptr<TraceFile>> TraceFile::Open(
    loop::Sequence& sequence,
    const std::string& path,
    size_t max_bytes) {
  // Without O_NONBLOCK the opening of a pipe waits for its reader.
  loop::ScopedFd file(
      open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC | O_NONBLOCK, 0600));
  struct stat found = {};
  if (!file.is_valid() || fstat(file.get(), &found) != 0) {
    return absl::ErrnoToStatus(
        errno, absl::StrCat("cannot write the trace file ", path));
  }
  if (!S_ISREG(found.st_mode)) {
    return absl::FailedPreconditionError(
        absl::StrCat("the trace file ", path, " is not a regular file"));
  }
  // Else two writers would empty the file and write over each other's events.
  // Where files cannot be locked, nobody is kept out.
  if (flock(file.get(), LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK) {
    return absl::AlreadyExistsError(
        absl::StrCat("another process writes the trace file ", path,
                     ": choose another one"));
  }
  if (ftruncate(file.get(), 0) != 0) {
    return absl::ErrnoToStatus(
        errno, absl::StrCat("cannot empty the trace file ", path));
  }
  return std::unique_ptr<TraceFile>(
      new TraceFile(sequence, path, std::move(file), max_bytes));
}

TraceFile::TraceFile(loop::Sequence& sequence,
                     const std::string& path,
                     loop::ScopedFd file,
                     size_t max_bytes)
    : sequence_(sequence),
      start_(sequence.Now()),
      path_(path),
      file_(std::move(file)),
      max_bytes_(max_bytes),
      bytes_(kStart.size() + kEnd.size()),
      unwritten_(kStart) {}

TraceFile::~TraceFile() {
  Close();
}

void TraceFile::Close() {
  if (state_ == State::kClosed) {
    return;
  }
  absl::StrAppend(&unwritten_, kEnd);
  Write();
  state_ = State::kClosed;
}

void TraceFile::Begin(const Span& span) {
  if (span.kind == SpanKind::kConnection) {
    AppendLine(absl::StrCat(
        "{\"ph\":\"M\",\"name\":\"process_name\",\"pid\":", span.connection,
        Arguments(absl::StrCat("\"name\":", Quoted(span.name))), "}"));
  }
  Append(span, 'b', "");
}

void TraceFile::End(const Span& span, const absl::Status& status) {
  Append(
      span, 'e',
      status.ok()
          ? ""
          : Arguments(absl::StrCat(
                "\"status\":", Quoted(absl::StatusCodeToString(status.code())),
                ",\"text\":", Quoted(status.message()))));
}

void TraceFile::Event(const Span& stream, size_t bytes) {
  Append(stream, 'n', Arguments(absl::StrCat("\"bytes\":", bytes)));
}

void TraceFile::Append(const Span& span,
                       char phase,
                       const std::string& arguments) {
  if (state_ != State::kWriting) {
    return;
  }
  const bool is_connection = span.kind == SpanKind::kConnection;
  AppendLine(absl::StrCat("{\"ph\":\"", std::string_view(&phase, 1),
                          "\",\"cat\":\"", NameOf(span.kind), "\",\"name\":\"",
                          is_connection ? NameOf(span.kind) : span.name,
                          "\",\"id2\":{\"local\":\"", LocalId(span),
                          "\"},\"pid\":", span.connection, ",\"tid\":1,\"ts\":",
                          Timestamp(sequence_.Now() - start_), arguments, "}"));
}

void TraceFile::AppendLine(const std::string& line) {
  if (state_ != State::kWriting) {
    return;
  }
  const std::string_view separator =
      bytes_ == kStart.size() + kEnd.size() ? "\n" : ",\n";
  const size_t bytes = separator.size() + line.size();
  if (bytes_ + bytes > max_bytes_) {
    Stop(State::kFull,
         absl::StrCat("it would be longer than ", max_bytes_, " bytes"));
    return;
  }
  bytes_ += bytes;
  absl::StrAppend(&unwritten_, separator, line);
  if (unwritten_.size() >= kWriteBytes) {
    Write();
  } else if (write_timer_ == nullptr) {
    write_timer_ = sequence_.RunAfter(kMaxDelay, [this] { Write(); });
  }
}

void TraceFile::Write() {
  write_timer_.reset();
  if (state_ != State::kBroken && !WriteAll(file_.get(), unwritten_)) {
    Stop(State::kBroken, strerror(errno));
  }
  unwritten_.clear();
}

void TraceFile::Stop(State state, const std::string& why) {
  state_ = state;
  LOG(WARNING) << "Nothing more is written to the trace file "
               << absl::CHexEscape(path_) << ": " << why;
}

}  // namespace rpc::trace
