#include "core/common/rpc/loop/readable_watch.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <memory>
#include <string>

namespace rpc::loop {
namespace {

class ReadableWatchTest : public ::testing::Test {
 protected:
  ReadableWatchTest() { EXPECT_EQ(pipe(pipe_), 0); }
  ~ReadableWatchTest() override {
    CloseWriteEnd();
    close(pipe_[0]);
  }

  void Say(const std::string& text) {
    EXPECT_EQ(write(pipe_[1], text.data(), text.size()),
              static_cast<ssize_t>(text.size()));
  }
  void CloseWriteEnd() {
    if (pipe_[1] >= 0) {
      close(pipe_[1]);
      pipe_[1] = -1;
    }
  }
  char ReadByte() {
    char byte = 0;
    EXPECT_EQ(read(pipe_[0], &byte, 1), 1);
    return byte;
  }

  Loop loop_;
  int pipe_[2];
};

TEST_F(ReadableWatchTest, CallsForAsLongAsSomethingCanBeRead) {
  std::string text;
  ReadableWatch watch(loop_, pipe_[0], [&] { text += ReadByte(); });
  Say("ab");
  EXPECT_TRUE(loop_.RunUntil([&] { return text == "ab"; }));
  loop_.RunReady();
  EXPECT_EQ(text, "ab");
  Say("c");
  EXPECT_TRUE(loop_.RunUntil([&] { return text == "abc"; }));
}

TEST_F(ReadableWatchTest, CallsWhenTheOtherEndIsClosed) {
  bool called = false;
  auto watch =
      std::make_unique<ReadableWatch>(loop_, pipe_[0], [&] { called = true; });
  CloseWriteEnd();
  EXPECT_TRUE(loop_.RunUntil([&] { return called; }));
}

TEST_F(ReadableWatchTest, MayBeDestroyedByItsHandler) {
  int calls = 0;
  std::unique_ptr<ReadableWatch> watch;
  watch = std::make_unique<ReadableWatch>(loop_, pipe_[0], [&] {
    ++calls;
    watch.reset();
  });
  Say("ab");
  loop_.Run();
  EXPECT_EQ(calls, 1);
}

TEST_F(ReadableWatchTest, LeavesTheDescriptorOpen) {
  {
    ReadableWatch watch(loop_, pipe_[0], [] {});
  }
  Say("x");
  EXPECT_EQ(ReadByte(), 'x');
}

}  // namespace
}  // namespace rpc::loop
