#include "tools/cli/line_reader.h"

#include <fcntl.h>
#include <signal.h>
#include <stdlib.h>
#include <unistd.h>

#include <string_view>
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

TEST_F(LineReaderTest, LongLineComesWhole) {
  const std::string line(50'000, 'x');
  Write(line + "\n");
  StartReading(pipe_[0]);
  WaitForLines(1);
  EXPECT_THAT(lines_, ElementsAre(line));
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
