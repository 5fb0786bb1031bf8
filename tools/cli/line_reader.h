// Reads lines from a terminal, pipe or file without holding up a sequence.
//
//   cli::LineReader reader(loop, STDIN_FILENO,
//                          [](std::optional<std::string> line) {
//                            line ? Obey(*line) : StopListening();
//                          });
//
// A thread of the reader's own waits and reads, and posts each line. A watch on
// the descriptor would not do: it can't wait for a file. Nor would non-blocking
// mode, which every process that shares the terminal would get as well. Reading
// the terminal from a shell's background job ends the input, where it would
// otherwise stop the process.
//
// Ownership: the descriptor stays the caller's. The sequence must outlive the
// reader. A loop is not kept running by a reader that waits.
//
// Sequence: made and destroyed on the given one; the handler runs there too,
// never inside the constructor, and no more once the reader is destroyed. It
// may destroy the reader.
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
  // Blocks; false at the end of the input and when the reader is destroyed.
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
