#include "tools/cli/record_writer.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <new>
#include <string>
#include <vector>

#include "absl/strings/str_cat.h"
#include "absl/strings/str_split.h"
#include "base/logging.h"
#include "gmock/gmock.h"
#include "gtest/gtest.h"

namespace cli {
namespace {

using std::chrono::milliseconds;
using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::IsEmpty;
using ::testing::MatchesRegex;
using ::testing::SizeIs;

constexpr char kFile[] = "x.cc";
constexpr size_t kMax = RecordWriter::kMaxPerSecond;

class RecordWriterTest : public ::testing::Test {
 protected:
  RecordWriterTest() {
    int ends[2];
    EXPECT_EQ(0, pipe2(ends, O_CLOEXEC | O_NONBLOCK));
    read_ = rpc::loop::ScopedFd(ends[0]);
    write_ = rpc::loop::ScopedFd(ends[1]);
    lines_.emplace(write_.get(), "record");
    records_.emplace(*lines_, [this] { return now_; });
  }

  // As LOG does: "[PREFIX] text".
  void Record(const std::string& text,
              int severity = logging::LOGGING_WARNING,
              int line = 1) {
    const std::string prefix =
        absl::StrCat("[", now_.time_since_epoch() / milliseconds(1), "] ");
    records_->Write(severity, kFile, line, prefix.size(),
                    absl::StrCat(prefix, text, "\n"));
  }
  void Record(const std::string& text, size_t times) {
    for (size_t i = 0; i < times; ++i)
      Record(text);
  }

  // What has been written since the last time.
  std::vector<std::string> Written() {
    std::string text(1 << 16, '\0');
    const ssize_t size = read(read_.get(), text.data(), text.size());
    text.resize(size < 0 ? 0 : static_cast<size_t>(size));
    return absl::StrSplit(text, '\n', absl::SkipEmpty());
  }

  rpc::loop::ScopedFd read_;
  rpc::loop::ScopedFd write_;
  std::optional<LineWriter> lines_;
  RecordWriter::Clock::time_point now_{std::chrono::seconds(100)};
  std::optional<RecordWriter> records_;
};

TEST_F(RecordWriterTest, RecordsAreWrittenAsTheyAre) {
  Record("one");
  Record("two", logging::LOGGING_INFO);
  EXPECT_THAT(Written(), ElementsAre("[100000] one", "[100000] two"));
}

TEST_F(RecordWriterTest, WhatClientsPutIntoARecordIsEscaped) {
  Record("title \x1b[2J\u202e\xff\n[100000] forged");
  EXPECT_THAT(
      Written(),
      ElementsAre(R"([100000] title \x1b[2J\u202e\xff\x0a[100000] forged)"));
}

TEST_F(RecordWriterTest, ALongRecordIsShortened) {
  Record(std::string(16 << 20, 'x'));
  const std::vector<std::string> written = Written();
  ASSERT_THAT(written, SizeIs(1));
  EXPECT_EQ(LineWriter::kMaxLineBytes - 1, written[0].size());
  EXPECT_THAT(written[0], EndsWith("xx[...]"));
}

TEST_F(RecordWriterTest, ALongRecordOfEscapedCharactersIsShortened) {
  Record(std::string(1 << 20, '\x1b'));
  const std::vector<std::string> written = Written();
  ASSERT_THAT(written, SizeIs(1));
  EXPECT_EQ(LineWriter::kMaxLineBytes - 1, written[0].size());
}

TEST_F(RecordWriterTest,
       AsManyWarningsOfASourceAsAreAllowedInASecondAreWritten) {
  Record("w", kMax);
  now_ += milliseconds(1'000);
  Record("later");
  const std::vector<std::string> written = Written();
  ASSERT_THAT(written, SizeIs(kMax + 1));
  EXPECT_EQ("[101000] later", written.back());
}

TEST_F(RecordWriterTest, WarningsBeyondThatAreLeftOutAndCounted) {
  Record("w", kMax + 17);
  EXPECT_THAT(Written(), SizeIs(kMax));
  now_ += milliseconds(999);
  Record("w");
  EXPECT_THAT(Written(), IsEmpty());
  now_ += milliseconds(1);
  Record("w");
  EXPECT_THAT(Written(), ElementsAre("[100999] Left out 18 more like this.",
                                     "[101000] w"));
}

TEST_F(RecordWriterTest, ANewSecondAllowsAsManyAgain) {
  Record("w", kMax + 1);
  now_ += milliseconds(1'000);
  Record("w", kMax + 1);
  EXPECT_THAT(Written(), SizeIs(kMax + 1 + kMax));
}

TEST_F(RecordWriterTest, WhatWasLeftOutIsSaidWithTheNextRecordOfAnySource) {
  Record("w", kMax + 1);
  Written();
  now_ += milliseconds(1'000);
  Record("call", logging::LOGGING_INFO, 2);
  EXPECT_THAT(Written(), ElementsAre("[100000] Left out 1 more like this.",
                                     "[101000] call"));
}

TEST_F(RecordWriterTest, WhatWasLeftOutCanBeSaidAtOnceAndIsSaidOnce) {
  Record("w", kMax + 3);
  Written();
  records_->SayWhatWasLeftOut();
  records_->SayWhatWasLeftOut();
  EXPECT_THAT(Written(), ElementsAre("[100000] Left out 3 more like this."));
}

TEST_F(RecordWriterTest, EachSourceIsLimitedByItself) {
  Record("w", kMax + 1);
  Written();
  Record("other", logging::LOGGING_ERROR, 2);
  EXPECT_THAT(Written(), ElementsAre("[100000] other"));
}

TEST_F(RecordWriterTest, OnlyWarningsAndErrorsAreLimited) {
  for (const int severity : {logging::LOGGING_INFO, logging::LOGGING_FATAL}) {
    for (size_t i = 0; i < kMax + 1; ++i)
      Record("r", severity);
    EXPECT_THAT(Written(), SizeIs(kMax + 1));
  }
  for (size_t i = 0; i < kMax + 1; ++i)
    Record("r", logging::LOGGING_ERROR);
  EXPECT_THAT(Written(), SizeIs(kMax));
}

// In processes of their own, since it is for the whole process.
using WriteRecordsToDeathTest = RecordWriterTest;

TEST_F(WriteRecordsToDeathTest, TakesTheRecordsOfLog) {
  EXPECT_EXIT(
      {
        WriteRecordsTo(STDERR_FILENO);
        LOG(WARNING) << "one\x1b";
        _exit(0);
      },
      ::testing::ExitedWithCode(0),
      MatchesRegex("\\[.*:WARNING:.*\\] one\\\\x1b\n"));
}

bool DiedOfATrap(int status) {
  return WIFSIGNALED(status) &&
         (WTERMSIG(status) == SIGILL || WTERMSIG(status) == SIGTRAP);
}

TEST_F(WriteRecordsToDeathTest, AFatalRecordIsWrittenAndEndsTheProcess) {
  EXPECT_EXIT(
      {
        WriteRecordsTo(STDERR_FILENO);
        LOG(FATAL) << "Last words";
      },
      DiedOfATrap, ":FATAL:.*Last words");
}

TEST_F(WriteRecordsToDeathTest, WithoutMemoryTheProcessSaysSoAndEnds) {
  EXPECT_EXIT(
      {
        WriteRecordsTo(STDERR_FILENO);
        std::get_new_handler()();
      },
      DiedOfATrap, "^No memory is left: the process ends.\n$");
}

TEST_F(WriteRecordsToDeathTest, WithoutMemoryTheProcessEndsThoughNobodyReads) {
  EXPECT_EXIT(
      {
        while (write(write_.get(), "x", 1) == 1) {
        }
        fcntl(write_.get(), F_SETFL, 0);
        WriteRecordsTo(write_.get());
        alarm(60);
        std::get_new_handler()();
      },
      DiedOfATrap, "");
}

TEST_F(WriteRecordsToDeathTest, AFatalRecordEndsTheProcessThoughNobodyReads) {
  EXPECT_EXIT(
      {
        while (write(write_.get(), "x", 1) == 1) {
        }
        fcntl(write_.get(), F_SETFL, 0);
        WriteRecordsTo(write_.get());
        // Ends the process, by another signal, if it waits for a reader.
        alarm(60);
        LOG(FATAL) << "Last words";
      },
      DiedOfATrap, "");
}

}  // namespace
}  // namespace cli
