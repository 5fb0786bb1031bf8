// Reads lines from a terminal, pipe or file without holding up a loop.
//
//   cli::LineReader reader(loop, STDIN_FILENO,
//                          [](std::optional<std::string> line) {
//                            line ? Obey(*line) : StopListening();
//                          });
//
// Asio itself would put the descriptor into non-blocking mode, and with it that
// of every process that shares the terminal; it cannot wait for files either.
// So a thread of the reader's own waits and reads. In a shell's background job
// the terminal counts as ended rather than stopping the process.
//
// Ownership: the descriptor stays the caller's. The loop must outlive the
// reader; a waiting reader does not keep it running.
//
// Sequence: made and destroyed on the loop's thread; the handler runs there,
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

#include "core/common/rpc/transport/asio.h"

namespace cli {

class LineReader {
 public:
  // Gets each line without its line break, also a last one that has none, and
  // then once nothing.
  using Handler = std::function<void(std::optional<std::string> line)>;

  LineReader(asio::io_context& loop, int descriptor, Handler handler);
  LineReader(const LineReader&) = delete;
  LineReader& operator=(const LineReader&) = delete;
  ~LineReader();

 private:
  void Run();
  // Blocks; false at the end of the input and when the reader is destroyed.
  bool ReadMore(std::string& buffer);
  void Post(std::optional<std::string> line);

  asio::io_context& loop_;
  const int descriptor_;
  // Emptied on destruction; what is still posted finds it empty then.
  const std::shared_ptr<Handler> handler_;
  // Written to on destruction, to wake the thread.
  int wake_;
  std::thread thread_;
};

}  // namespace cli

#endif  // TOOLS_CLI_LINE_READER_H_
