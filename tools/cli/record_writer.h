// Writes the records of LOG without ever holding up or ending the program that
// makes them.
//
//   cli::RecordWriter& records = cli::WriteRecordsTo(STDERR_FILENO);
//   ...
//   records.SayWhatWasLeftOut();     // at the end
//
// What clients do is recorded, so clients decide how much is recorded, and what
// is in it. Therefore
//   - a record that cannot be written at once is dropped and counted
//     (line_writer.h);
//   - it is one line of printable characters (printable.h), of at most
//     LineWriter::kMaxLineBytes;
//   - of warnings and errors that one line of the sources records, at most
//     kMaxPerSecond are written in a second. How many more there were is said
//     with the next record after that second, whatever line it is from.
// Records below WARNING are not limited in number: a program makes them only
// where it wants one for each call. Nor are FATAL ones.
//
// Ownership: the lines are the caller's and must outlive the writer.
//
// Sequence: any thread.
//
// Failure: none but lost records.

#ifndef TOOLS_CLI_RECORD_WRITER_H_
#define TOOLS_CLI_RECORD_WRITER_H_

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>

#include "tools/cli/line_writer.h"

namespace cli {

class RecordWriter {
 public:
  using Clock = std::chrono::steady_clock;

  static constexpr int kMaxPerSecond = 20;

  // `now` is the time by which records are limited.
  explicit RecordWriter(LineWriter& lines,
                        std::function<Clock::time_point()> now = Clock::now);
  RecordWriter(const RecordWriter&) = delete;
  RecordWriter& operator=(const RecordWriter&) = delete;

  // The arguments are those of a logging::LogMessageHandlerFunction. `file`
  // must be a literal.
  void Write(int severity,
             const char* file,
             int line,
             size_t message_start,
             const std::string& record);

  // Says at once how many records were left out.
  void SayWhatWasLeftOut();

 private:
  // A line of the sources that records.
  struct Source {
    Clock::time_point second_began;
    int in_this_second = 0;
    uint64_t left_out = 0;
    // Time, severity and place of the last record that was left out.
    std::string prefix;
  };

  // Whether one more record may be written.
  static bool Admit(Source& source, Clock::time_point now);
  void SayWhatWasLeftOut(Source& source);

  LineWriter& lines_;
  const std::function<Clock::time_point()> now_;
  std::mutex mutex_;
  std::map<std::pair<const char*, int>, Source> sources_;
};

// Has a writer of this descriptor take all records of this process, to its end:
// those of LOG, and what Protocol Buffers would print to standard error
// (protobuf_log.h). From here on no write of the process ends it, neither to a
// reader that has gone nor to a file that takes no more. A process that gets no
// more memory says so there and ends at once, so that nothing half done is
// seen. Call it once.
RecordWriter& WriteRecordsTo(int descriptor);

}  // namespace cli

#endif  // TOOLS_CLI_RECORD_WRITER_H_
