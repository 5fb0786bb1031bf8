// Reads lines from a terminal, pipe or file without blocking a sequence.
//
//   cli::LineReader reader(loop, STDIN_FILENO,
//                          [](std::optional<std::string> line) {
//                            line ? Obey(*line) : StopListening();
//                          });
//
// The reader has a thread that reads, and posts each line to the sequence. A
// watch on the descriptor can't wait for a file, and non-blocking mode would
// also affect every other process that shares the terminal. In a shell's
// background job, reading the terminal ends the input instead of stopping the
// process.
//
// Ownership: the descriptor stays the caller's. The sequence must outlive the
// reader. A waiting reader does not keep a loop running.
//
// Sequence: created and destroyed on the given one. The handler runs there too,
// never inside the constructor or after the destructor, and may destroy the
// reader.
//
// Failure: an error ends the input.

#ifndef TOOLS_CLI_LINE_READER_H_
#define TOOLS_CLI_LINE_READER_H_

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <thread>

#include "core/common/rpc/loop/sequence.h"

namespace cli {

class LineReader {
 public:
  // Gets each line without its line break, then nullopt once, at the end of the
  // input. Text after the last line break counts as a line.
  using Handler = std::function<void(std::optional<std::string> line)>;

  LineReader(rpc::loop::Sequence& sequence, int descriptor, Handler handler);
  LineReader(const LineReader&) = delete;
  LineReader& operator=(const LineReader&) = delete;
  ~LineReader();

 private:
  void Run();
  // Blocks until there is more. False at the end of the input, or when the
  // reader is destroyed.
  bool ReadMore(std::string& buffer);
  void Post(std::optional<std::string> line);

  rpc::loop::Sequence& sequence_;
  const int descriptor_;
  // Shared with the tasks that are posted; emptied on destruction, so that
  // those that run later do nothing.
  const std::shared_ptr<Handler> handler_;
  // Written to on destruction, to wake the thread.
  int wake_;
  std::thread thread_;
};

}  // namespace cli

#endif  // TOOLS_CLI_LINE_READER_H_
