// Writes lines for people and scripts, and never waits for them.
//
//   cli::LineWriter output(STDOUT_FILENO, "line");
//   output.Write("Window 1 is closed.");
//
// A program that serves others must not stop because nobody reads what it says:
// a pipe that is full, a terminal that is stopped. What cannot be written at
// once is dropped and counted, and as soon as a line can be written again, one
// goes before it that says "17 lines were dropped: nobody read them in time.".
//
// Non-blocking mode belongs to what the descriptor refers to, so it would also
// affect every other process that shares it. The writer opens the pipe or
// terminal for itself instead. What it cannot open, such as a socket, it asks
// whether there is room, and writes no more at a time than that is granted for.
//
// Ownership: the descriptor stays the caller's and must stay open.
//
// Sequence: any thread. Lines of different threads do not interleave, unless
// they go through different writers to one terminal that has run full.
//
// Failure: a line that cannot be written is counted like one without room. The
// program must ignore SIGPIPE, or a reader that has gone ends it.

#ifndef TOOLS_CLI_LINE_WRITER_H_
#define TOOLS_CLI_LINE_WRITER_H_

#include <limits.h>

#include <cstddef>
#include <cstdint>
#include <mutex>
#include <string>
#include <string_view>

#include "core/common/rpc/loop/scoped_fd.h"

namespace cli {

class LineWriter {
 public:
  // A longer line, its break included, is shortened. A pipe takes this much
  // whole or not at all, and has room for it whenever poll() says that it has
  // any.
  static constexpr size_t kMaxLineBytes = PIPE_BUF;

  // `noun` says in the singular what a line is, as in "17 records were
  // dropped".
  LineWriter(int descriptor, std::string noun);
  LineWriter(const LineWriter&) = delete;
  LineWriter& operator=(const LineWriter&) = delete;

  // Takes the line without its break.
  void Write(std::string_view line);

 private:
  // False if nothing of the line was written.
  bool Begin(std::string_view line);
  // Writes what is left of a line that has begun. False if there is no room.
  bool Finish();
  std::string DroppedText() const;

  const std::string noun_;
  const rpc::loop::ScopedFd own_;
  const int descriptor_;
  std::mutex mutex_;
  // What is left of the line that was begun: a terminal or a full disk may take
  // part of one.
  std::string rest_;
  uint64_t dropped_ = 0;
};

}  // namespace cli

#endif  // TOOLS_CLI_LINE_WRITER_H_
