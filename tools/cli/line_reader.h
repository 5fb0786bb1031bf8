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
// Whoever writes the input decides neither how much memory it takes nor for how
// long: a line is kept up to kMaxLineBytes, and nothing more is read until the
// sequence has handled the lines read before.
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

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <semaphore>
#include <string>
#include <string_view>
#include <thread>
#include <utility>

#include "core/common/rpc/loop/sequence.h"

namespace cli {

class LineReader {
 public:
  // The longest line that is passed on whole. Of a longer one come its first
  // kMaxLineBytes + 1 bytes, which IsTooLong() tells; the rest is skipped.
  static constexpr size_t kMaxLineBytes = 64 << 10;

  static bool IsTooLong(std::string_view line) {
    return line.size() > kMaxLineBytes;
  }

  // Gets each line without its line break, then nullopt once, at the end of the
  // input. Text after the last line break counts as a line.
  using Handler = std::function<void(std::optional<std::string> line)>;

  LineReader(rpc::loop::Sequence& sequence, int descriptor, Handler handler);
  LineReader(const LineReader&) = delete;
  LineReader& operator=(const LineReader&) = delete;
  ~LineReader();

 private:
  // Shared with the tasks that are posted, which may run after the reader is
  // destroyed.
  struct Shared {
    explicit Shared(Handler the_handler) : handler(std::move(the_handler)) {}

    // Empty after that, so that they do nothing.
    Handler handler;
    // Released with each line that has been handled, and on destruction.
    std::counting_semaphore<> handled{0};
  };

  void Run();
  // Blocks until there is more, which replaces `chunk`. False at the end of the
  // input, or when the reader is destroyed.
  bool ReadMore(std::string& chunk);
  void Post(std::optional<std::string> line);

  rpc::loop::Sequence& sequence_;
  const int descriptor_;
  const std::shared_ptr<Shared> shared_;
  // Written to on destruction, to wake the thread.
  int wake_;
  std::thread thread_;
};

}  // namespace cli

#endif  // TOOLS_CLI_LINE_READER_H_
