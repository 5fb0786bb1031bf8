#include "tools/cli/line_writer.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <latch>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "absl/strings/match.h"
#include "absl/strings/numbers.h"
#include "absl/strings/str_cat.h"
#include "absl/strings/str_split.h"
#include "gmock/gmock.h"
#include "gtest/gtest.h"

namespace cli {
namespace {

using rpc::loop::ScopedFd;
using ::testing::EndsWith;

// Two ends of something that is written to and read from.
struct Ends {
  ScopedFd read;
  ScopedFd write;

  // What can be read by now. What is written to a terminal comes a moment
  // later.
  std::string Read() const {
    fcntl(read.get(), F_SETFL, O_NONBLOCK);
    std::string text;
    std::array<char, 4096> chunk;
    ssize_t size;
    while ((size = ::read(read.get(), chunk.data(), chunk.size())) > 0)
      text.append(chunk.data(), static_cast<size_t>(size));
    return text;
  }

  // Waits for more.
  std::string AwaitAndRead(int timeout_ms = -1) const {
    pollfd polled = {read.get(), POLLIN, 0};
    poll(&polled, 1, timeout_ms);
    return Read();
  }
};

Ends MakePipe() {
  int ends[2];
  EXPECT_EQ(0, pipe2(ends, O_CLOEXEC));
  return {ScopedFd(ends[0]), ScopedFd(ends[1])};
}

Ends MakeSockets() {
  int ends[2];
  EXPECT_EQ(0, socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends));
  return {ScopedFd(ends[0]), ScopedFd(ends[1])};
}

// A terminal that passes on what it is given, and its user's end.
Ends MakeTerminal() {
  ScopedFd user(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC));
  EXPECT_EQ(0, grantpt(user.get()));
  EXPECT_EQ(0, unlockpt(user.get()));
  ScopedFd terminal(open(ptsname(user.get()), O_RDWR | O_NOCTTY | O_CLOEXEC));
  termios mode;
  EXPECT_EQ(0, tcgetattr(terminal.get(), &mode));
  cfmakeraw(&mode);
  EXPECT_EQ(0, tcsetattr(terminal.get(), TCSANOW, &mode));
  return {std::move(user), std::move(terminal)};
}

// Writes more lines than there is room for before any is read. Each must come
// whole, or be counted among those that were dropped.
void ExpectDroppedLinesToBeCounted(const Ends& ends, size_t line_bytes) {
  constexpr size_t kLines = 2'000;
  LineWriter writer(ends.write.get(), "line");
  const std::string line(line_bytes, 'x');
  for (size_t i = 0; i < kLines; ++i)
    writer.Write(line);

  // The last lines, until one of them passes.
  std::string text = ends.Read();
  size_t last_lines = 0;
  std::string last;
  do {
    last = absl::StrCat("last ", ++last_lines, "\n");
    writer.Write(last.substr(0, last.size() - 1));
    text += ends.AwaitAndRead(10);
  } while (!absl::EndsWith(text, last));

  size_t written = 0;
  size_t dropped = 0;
  for (const std::string_view got :
       absl::StrSplit(text, '\n', absl::SkipEmpty())) {
    const std::vector<std::string_view> words = absl::StrSplit(got, ' ');
    size_t count;
    if (absl::SimpleAtoi(words[0], &count)) {
      EXPECT_EQ(absl::StrCat(count, count == 1 ? " line was" : " lines were",
                             " dropped: nobody read ",
                             count == 1 ? "it" : "them", " in time."),
                got);
      dropped += count;
      continue;
    }
    ++written;
    EXPECT_TRUE(got == line || words[0] == "last") << got;
  }
  EXPECT_GT(written, 1u);
  EXPECT_GT(dropped, 0u);
  EXPECT_EQ(kLines + last_lines, written + dropped);
}

TEST(LineWriter, LinesAreWrittenWithTheirBreaks) {
  const Ends pipe = MakePipe();
  LineWriter writer(pipe.write.get(), "line");
  writer.Write("one");
  writer.Write("");
  writer.Write("three");
  EXPECT_EQ("one\n\nthree\n", pipe.Read());
}

TEST(LineWriter, LinesOfAFullPipeAreDroppedAndCounted) {
  ExpectDroppedLinesToBeCounted(MakePipe(), 999);
}

TEST(LineWriter, LinesOfAFullSocketAreDroppedAndCounted) {
  ExpectDroppedLinesToBeCounted(MakeSockets(), 999);
}

TEST(LineWriter, LinesOfATerminalThatIsNotReadAreDroppedAndCounted) {
  ExpectDroppedLinesToBeCounted(MakeTerminal(), 999);
}

TEST(LineWriter, OneDroppedLineIsCalledOne) {
  const Ends pipe = MakePipe();
  LineWriter writer(pipe.write.get(), "record");
  const int capacity = fcntl(pipe.write.get(), F_GETPIPE_SZ);
  const std::string filling(static_cast<size_t>(capacity), '.');
  ASSERT_EQ(capacity, write(pipe.write.get(), filling.data(), filling.size()));
  writer.Write("lost");
  EXPECT_EQ(filling, pipe.Read());
  writer.Write("next");
  EXPECT_EQ("1 record was dropped: nobody read it in time.\nnext\n",
            pipe.Read());
}

TEST(LineWriter, WhatWasDroppedIsSaidOnce) {
  const Ends pipe = MakePipe();
  LineWriter writer(pipe.write.get(), "line");
  for (int i = 0; i < 200; ++i)
    writer.Write(std::string(999, 'x'));
  pipe.Read();
  writer.Write("one");
  writer.Write("two");
  EXPECT_THAT(pipe.Read(), EndsWith(" in time.\none\ntwo\n"));
}

// Both see that there is room for one line, and one of them finds none.
TEST(LineWriter, NoWriterWaitsWhenAnotherOneFillsThePipe) {
  constexpr int kPipes = 2'000;
  for (int i = 0; i < kPipes; ++i) {
    const Ends pipe = MakePipe();
    ASSERT_LE(0, fcntl(pipe.write.get(), F_SETPIPE_SZ, 4'096));
    std::latch ready(2);
    const auto write = [&] {
      LineWriter writer(pipe.write.get(), "line");
      ready.arrive_and_wait();
      writer.Write(std::string(LineWriter::kMaxLineBytes - 1, 'x'));
    };
    std::thread other(write);
    write();
    other.join();
    EXPECT_EQ(LineWriter::kMaxLineBytes, pipe.Read().size());
  }
}

TEST(LineWriter, AReaderThatHasGoneDoesNotEndTheProcess) {
  signal(SIGPIPE, SIG_IGN);
  for (Ends& ends : std::array{MakePipe(), MakeSockets(), MakeTerminal()}) {
    LineWriter writer(ends.write.get(), "line");
    ends.read = ScopedFd();
    writer.Write("to nobody");
    writer.Write("to nobody");
  }
}

TEST(LineWriter, ADescriptorThatIsNotOpenTakesNothing) {
  LineWriter writer(-1, "line");
  writer.Write("to nobody");
  LineWriter full(ScopedFd(open("/dev/full", O_WRONLY)).get(), "line");
  full.Write("to nobody");
}

TEST(LineWriter, SharedDescriptorsKeepTheirBlockingMode) {
  for (const Ends& ends :
       std::array{MakePipe(), MakeSockets(), MakeTerminal()}) {
    LineWriter writer(ends.write.get(), "line");
    writer.Write("one");
    EXPECT_EQ(0, fcntl(ends.write.get(), F_GETFL) & O_NONBLOCK);
    EXPECT_EQ("one\n", ends.AwaitAndRead());
  }
}

TEST(LineWriter, FilesAreWrittenBehindWhatOthersWrite) {
  char path[] = "/tmp/line_writer.XXXXXX";
  const ScopedFd file(mkstemp(path));
  unlink(path);
  ASSERT_EQ(7, write(file.get(), "before\n", 7));
  LineWriter writer(file.get(), "line");
  writer.Write("one");
  ASSERT_EQ(6, write(file.get(), "after\n", 6));
  char text[32] = {};
  EXPECT_EQ(17, pread(file.get(), text, sizeof(text) - 1, 0));
  EXPECT_STREQ("before\none\nafter\n", text);
}

TEST(LineWriter, ALineOfTheGreatestLengthIsWrittenWhole) {
  const Ends pipe = MakePipe();
  LineWriter writer(pipe.write.get(), "line");
  const std::string line(LineWriter::kMaxLineBytes - 1, 'x');
  writer.Write(line);
  EXPECT_EQ(line + "\n", pipe.Read());
}

TEST(LineWriter, ALineOfOneByteMoreIsShortened) {
  EXPECT_EQ(4'096u, LineWriter::kMaxLineBytes);
  const Ends pipe = MakePipe();
  LineWriter writer(pipe.write.get(), "line");
  writer.Write(std::string(LineWriter::kMaxLineBytes, 'x'));
  EXPECT_EQ(std::string(4'090, 'x') + "[...]\n", pipe.Read());
}

// A disk that is full takes part of a line. So does a file of limited size.
TEST(LineWriter, ALineThatHasBegunIsFinishedBeforeTheNext) {
  signal(SIGXFSZ, SIG_IGN);
  rlimit unlimited;
  ASSERT_EQ(0, getrlimit(RLIMIT_FSIZE, &unlimited));
  char path[] = "/tmp/line_writer.XXXXXX";
  const ScopedFd file(mkstemp(path));
  unlink(path);
  LineWriter writer(file.get(), "line");
  const std::string line(999, 'x');

  rlimit limited = unlimited;
  limited.rlim_cur = 1'500;
  ASSERT_EQ(0, setrlimit(RLIMIT_FSIZE, &limited));
  writer.Write(line);
  writer.Write(line);
  writer.Write("lost");
  ASSERT_EQ(0, setrlimit(RLIMIT_FSIZE, &unlimited));
  writer.Write("next");
  std::string text(4'000, '\0');
  const ssize_t size = pread(file.get(), text.data(), text.size(), 0);
  ASSERT_GT(size, 0);
  text.resize(static_cast<size_t>(size));
  EXPECT_EQ(line + "\n" + line +
                "\n1 line was dropped: nobody read it in time.\nnext\n",
            text);
}

}  // namespace
}  // namespace cli
