#include "tools/cli/line_reader.h"

#include <fcntl.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <string_view>
#include <thread>
#include <vector>

#include "core/common/rpc/loop/loop.h"
#include "gmock/gmock.h"
#include "gtest/gtest.h"

namespace cli {
namespace {

using ::testing::ElementsAre;

class LineReaderTest : public ::testing::Test {
 protected:
  LineReaderTest() { EXPECT_EQ(0, pipe2(pipe_, O_CLOEXEC)); }
  ~LineReaderTest() override {
    reader_.reset();
    CloseWriter();
    close(pipe_[0]);
  }

  void Write(std::string_view text) {
    EXPECT_EQ(static_cast<ssize_t>(text.size()),
              write(pipe_[1], text.data(), text.size()));
  }
  void CloseWriter() {
    if (pipe_[1] >= 0)
      close(pipe_[1]);
    pipe_[1] = -1;
  }

  void StartReading(int descriptor) {
    reader_.emplace(loop_, descriptor, [this](std::optional<std::string> line) {
      lines_.push_back(line.value_or("(end)"));
    });
  }

  // Runs the loop until that many lines, the end included, have come.
  void WaitForLines(size_t count) {
    const rpc::loop::Loop::Work reader_posts_later(loop_);
    EXPECT_TRUE(loop_.RunUntil([&] { return lines_.size() >= count; }));
  }

  int pipe_[2];
  rpc::loop::Loop loop_;
  std::vector<std::string> lines_;
  std::optional<LineReader> reader_;
};

TEST_F(LineReaderTest, LinesComeWithoutTheirBreaksAndThenTheEnd) {
  Write("one\n\ntwo\n");
  CloseWriter();
  StartReading(pipe_[0]);
  WaitForLines(4);
  EXPECT_THAT(lines_, ElementsAre("one", "", "two", "(end)"));
}

TEST_F(LineReaderTest, LineComesBeforeTheInputEnds) {
  StartReading(pipe_[0]);
  Write("one\nun");
  WaitForLines(1);
  EXPECT_THAT(lines_, ElementsAre("one"));
  Write("finished\n");
  WaitForLines(2);
  EXPECT_THAT(lines_, ElementsAre("one", "unfinished"));
}

TEST_F(LineReaderTest, LastLineNeedsNoBreak) {
  Write("one\ntwo");
  CloseWriter();
  StartReading(pipe_[0]);
  WaitForLines(3);
  EXPECT_THAT(lines_, ElementsAre("one", "two", "(end)"));
}

TEST_F(LineReaderTest, LineOfTheGreatestLengthComesWhole) {
  EXPECT_EQ(65'536u, LineReader::kMaxLineBytes);
  const std::string line(LineReader::kMaxLineBytes, 'x');
  StartReading(pipe_[0]);
  std::thread writer([&] { Write(line + "\nnext\n"); });
  WaitForLines(2);
  writer.join();
  EXPECT_THAT(lines_, ElementsAre(line, "next"));
  EXPECT_FALSE(LineReader::IsTooLong(lines_[0]));
}

TEST_F(LineReaderTest, LineOfOneByteMoreIsTooLong) {
  const std::string line(LineReader::kMaxLineBytes + 1, 'x');
  StartReading(pipe_[0]);
  std::thread writer([&] { Write(line + "\nnext\n"); });
  WaitForLines(2);
  writer.join();
  EXPECT_THAT(lines_, ElementsAre(line, "next"));
  EXPECT_TRUE(LineReader::IsTooLong(lines_[0]));
}

TEST_F(LineReaderTest, RestOfALineThatIsTooLongIsSkipped) {
  StartReading(pipe_[0]);
  std::thread writer([&] {
    for (int i = 0; i < 64; ++i)
      Write(std::string(10'000, 'x'));
    Write("\nnext\n");
  });
  WaitForLines(2);
  writer.join();
  EXPECT_EQ(LineReader::kMaxLineBytes + 1, lines_[0].size());
  EXPECT_TRUE(LineReader::IsTooLong(lines_[0]));
  EXPECT_EQ("next", lines_[1]);
}

TEST_F(LineReaderTest, NothingMoreIsReadUntilTheSequenceHasHandledTheLines) {
  constexpr size_t kChunkBytes = 4096;
  constexpr size_t kLines = 4 * kChunkBytes;
  Write(std::string(kLines, '\n'));
  size_t handled = 0;
  size_t read_too_early = 0;
  reader_.emplace(loop_, pipe_[0], [&](std::optional<std::string>) {
    int unread = 0;
    EXPECT_EQ(0, ioctl(pipe_[0], FIONREAD, &unread));
    const size_t begun = handled++ / kChunkBytes + 1;
    if (kLines - static_cast<size_t>(unread) > begun * kChunkBytes)
      ++read_too_early;
  });
  const rpc::loop::Loop::Work reader_posts_later(loop_);
  EXPECT_TRUE(loop_.RunUntil([&] { return handled == kLines; }));
  EXPECT_EQ(0u, read_too_early);
}

TEST_F(LineReaderTest, FilesAreReadLikePipes) {
  char path[] = "/tmp/line_reader.XXXXXX";
  const int file = mkstemp(path);
  unlink(path);
  ASSERT_EQ(4, write(file, "one\n", 4));
  lseek(file, 0, SEEK_SET);
  StartReading(file);
  WaitForLines(2);
  EXPECT_THAT(lines_, ElementsAre("one", "(end)"));
  close(file);
}

TEST_F(LineReaderTest, DescriptorKeepsItsBlockingMode) {
  Write("one\n");
  StartReading(pipe_[0]);
  WaitForLines(1);
  EXPECT_EQ(0, fcntl(pipe_[0], F_GETFL) & O_NONBLOCK);
}

TEST_F(LineReaderTest, SignalsAreLeftToOtherThreads) {
  Write("one\n");
  StartReading(pipe_[0]);
  WaitForLines(1);
  // With nobody else to take it, a signal that the reader took would end the
  // process.
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGUSR1);
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  kill(getpid(), SIGUSR1);
  EXPECT_EQ(SIGUSR1, sigwaitinfo(&signals, nullptr));
  pthread_sigmask(SIG_UNBLOCK, &signals, nullptr);
}

TEST_F(LineReaderTest, DestroyingWhileNothingComesDoesNotHang) {
  StartReading(pipe_[0]);
  reader_.reset();
  loop_.Run();
  EXPECT_THAT(lines_, ElementsAre());
}

TEST_F(LineReaderTest, HandlerMayDestroyTheReaderAndIsNotCalledAgain) {
  Write("one\ntwo\n");
  CloseWriter();
  reader_.emplace(loop_, pipe_[0], [this](std::optional<std::string> line) {
    lines_.push_back(line.value_or("(end)"));
    reader_.reset();
  });
  WaitForLines(1);
  loop_.Run();
  EXPECT_THAT(lines_, ElementsAre("one"));
}

}  // namespace
}  // namespace cli
