#include "tools/cli/record_writer.h"

#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <new>

#include "absl/strings/str_cat.h"
#include "absl/strings/strip.h"
#include "base/immediate_crash.h"
#include "base/logging.h"
#include "tools/cli/printable.h"
#include "tools/cli/protobuf_log.h"

namespace cli {
namespace {

constexpr std::chrono::seconds kSecond(1);

// Set once, before records are passed to it, and never destroyed: records may
// come until the process has ended.
RecordWriter* g_writer = nullptr;
int g_descriptor = -1;

bool PassOn(int severity,
            const char* file,
            int line,
            size_t message_start,
            const std::string& record) {
  g_writer->Write(severity, file, line, message_start, record);
  return true;
}

// For operator new. It may be a record that needs the memory, so this allocates
// nothing and takes no lock.
void EndWithoutMemory() {
  constexpr std::string_view kText = "No memory is left: the process ends.\n";
  pollfd polled = {g_descriptor, POLLOUT, 0};
  if (poll(&polled, 1, 0) == 1 && polled.revents == POLLOUT &&
      write(g_descriptor, kText.data(), kText.size()) < 0) {
    // Then it ends without a word.
  }
  base::ImmediateCrash();
}

}  // namespace

RecordWriter::RecordWriter(LineWriter& lines,
                           std::function<Clock::time_point()> now)
    : lines_(lines), now_(std::move(now)) {}

void RecordWriter::Write(int severity,
                         const char* file,
                         int line,
                         size_t message_start,
                         const std::string& record) {
  const std::lock_guard<std::mutex> lock(mutex_);
  const Clock::time_point now = now_();
  for (auto& [place, source] : sources_) {
    if (now - source.second_began >= kSecond)
      SayWhatWasLeftOut(source);
  }
  if (severity == logging::LOGGING_WARNING ||
      severity == logging::LOGGING_ERROR) {
    Source& source = sources_[{file, line}];
    if (!Admit(source, now)) {
      ++source.left_out;
      source.prefix = record.substr(0, message_start);
      return;
    }
  }
  // Shortened first: what is to be cut off need not be escaped.
  lines_.Write(Printable(
      Shorten(absl::StripSuffix(record, "\n"), LineWriter::kMaxLineBytes)));
}

void RecordWriter::SayWhatWasLeftOut() {
  const std::lock_guard<std::mutex> lock(mutex_);
  for (auto& [place, source] : sources_)
    SayWhatWasLeftOut(source);
}

bool RecordWriter::Admit(Source& source, Clock::time_point now) {
  if (now - source.second_began >= kSecond) {
    source.second_began = now;
    source.in_this_second = 0;
  }
  return source.in_this_second++ < kMaxPerSecond;
}

void RecordWriter::SayWhatWasLeftOut(Source& source) {
  if (source.left_out == 0)
    return;
  lines_.Write(Printable(absl::StrCat(source.prefix, "Left out ",
                                      source.left_out, " more like this.")));
  source.left_out = 0;
}

RecordWriter& WriteRecordsTo(int descriptor) {
  signal(SIGPIPE, SIG_IGN);
  signal(SIGXFSZ, SIG_IGN);
  g_descriptor = descriptor;
  std::set_new_handler(EndWithoutMemory);
  g_writer = new RecordWriter(*new LineWriter(descriptor, "record"));
  logging::SetLogMessageHandler(PassOn);
  RecordProtobufLog();
  return *g_writer;
}

}  // namespace cli
