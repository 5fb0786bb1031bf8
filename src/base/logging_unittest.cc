#include "base/logging.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <climits>
#include <string>
#include <string_view>
#include <thread>
#include <type_traits>
#include <vector>

namespace logging {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;

static_assert(std::is_same_v<LogSeverity, int>);
static_assert(LOGGING_INFO == 0);
static_assert(LOGGING_WARNING == 1);
static_assert(LOGGING_ERROR == 2);
static_assert(LOGGING_FATAL == 3);

struct Record {
  int severity;
  std::string file;
  int line;
  std::string prefix;
  std::string text;
};

std::vector<Record>& Records() {
  static std::vector<Record> records;
  return records;
}

bool Swallow(int severity,
             const char* file,
             int line,
             size_t message_start,
             const std::string& str) {
  Records().push_back({severity, file, line, str.substr(0, message_start),
                       str.substr(message_start)});
  return true;
}

bool LetPass(int severity,
             const char* file,
             int line,
             size_t message_start,
             const std::string& str) {
  Swallow(severity, file, line, message_start, str);
  return false;
}

class LoggingTest : public testing::Test {
 protected:
  void SetUp() override { Records().clear(); }
  void TearDown() override {
    SetLogMessageHandler(nullptr);
    SetMinLogLevel(LOGGING_INFO);
  }
};
using LoggingDeathTest = LoggingTest;

bool DiedOfATrap(int status) {
  return WIFSIGNALED(status) &&
         (WTERMSIG(status) == SIGILL || WTERMSIG(status) == SIGTRAP);
}

TEST_F(LoggingTest, RecordIsOneLineWithTimeSeverityFileAndLine) {
  testing::internal::CaptureStderr();
  LogMessage("src/core/x.cc", 194, LOGGING_WARNING).stream() << "Text " << 7;
  EXPECT_THAT(testing::internal::GetCapturedStderr(),
              MatchesRegex("\\[[0-9]{4}/[0-9]{6}\\.[0-9]{6}:WARNING:"
                           "src/core/x\\.cc\\(194\\)\\] Text 7\n"));
}

TEST_F(LoggingTest, EverySeverityIsNamed) {
  SetLogMessageHandler(Swallow);
  LOG(INFO) << "i";
  LOG(WARNING) << "w";
  LOG(ERROR) << "e";
  LogMessage("x.cc", 1, -1).stream() << "u";
  ASSERT_EQ(Records().size(), 4u);
  EXPECT_THAT(Records()[0].prefix, testing::HasSubstr(":INFO:"));
  EXPECT_THAT(Records()[1].prefix, testing::HasSubstr(":WARNING:"));
  EXPECT_THAT(Records()[2].prefix, testing::HasSubstr(":ERROR:"));
  EXPECT_THAT(Records()[3].prefix, testing::HasSubstr(":UNKNOWN:"));
}

TEST_F(LoggingTest, HandlerGetsTheWholeRecordAndWhereItsTextStarts) {
  SetLogMessageHandler(Swallow);
  const int line = __LINE__ + 1;
  LOG(ERROR) << "Text";
  ASSERT_EQ(Records().size(), 1u);
  const Record& record = Records()[0];
  EXPECT_EQ(record.severity, LOGGING_ERROR);
  EXPECT_EQ(record.file, "src/base/logging_unittest.cc");
  EXPECT_EQ(record.line, line);
  EXPECT_EQ(record.text, "Text\n");
  EXPECT_THAT(record.prefix,
              testing::EndsWith(":ERROR:src/base/logging_unittest.cc(" +
                                std::to_string(line) + ")] "));
}

TEST_F(LoggingTest, HandlerThatReturnsTrueSwallowsTheRecord) {
  SetLogMessageHandler(Swallow);
  testing::internal::CaptureStderr();
  LOG(ERROR) << "Text";
  EXPECT_THAT(testing::internal::GetCapturedStderr(), IsEmpty());
}

TEST_F(LoggingTest, HandlerThatReturnsFalseLetsTheRecordPass) {
  SetLogMessageHandler(LetPass);
  testing::internal::CaptureStderr();
  LOG(ERROR) << "Text";
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            Records()[0].prefix + "Text\n");
}

TEST_F(LoggingTest, RemovedHandlerIsNotCalled) {
  SetLogMessageHandler(Swallow);
  SetLogMessageHandler(nullptr);
  testing::internal::CaptureStderr();
  LOG(INFO) << "Text";
  EXPECT_THAT(testing::internal::GetCapturedStderr(),
              testing::EndsWith("Text\n"));
  EXPECT_THAT(Records(), IsEmpty());
}

TEST_F(LoggingTest, OperandsAreEvaluatedOnlyForRecordsThatAreCreated) {
  SetLogMessageHandler(Swallow);
  int evaluated = 0;
  SetMinLogLevel(LOGGING_ERROR);
  LOG(WARNING) << ++evaluated;
  EXPECT_EQ(evaluated, 0);
  LOG(ERROR) << ++evaluated;
  EXPECT_EQ(evaluated, 1);
  EXPECT_EQ(Records().size(), 1u);
}

TEST_F(LoggingTest, StandsInAnIfWithoutBraces) {
  SetLogMessageHandler(Swallow);
  for (const bool condition : {true, false}) {
    if (condition)
      LOG(INFO) << "then";
    else
      LOG(INFO) << "else";
  }
  ASSERT_EQ(Records().size(), 2u);
  EXPECT_EQ(Records()[0].text, "then\n");
  EXPECT_EQ(Records()[1].text, "else\n");
}

TEST_F(LoggingTest, LevelDecidesWhichRecordsAreCreated) {
  SetMinLogLevel(LOGGING_WARNING);
  EXPECT_FALSE(ShouldCreateLogMessage(LOGGING_INFO));
  EXPECT_TRUE(ShouldCreateLogMessage(LOGGING_WARNING));
  EXPECT_TRUE(ShouldCreateLogMessage(LOGGING_ERROR));
}

TEST_F(LoggingTest, FromTheStartEverythingFromInfoOnIsCreated) {
  EXPECT_TRUE(ShouldCreateLogMessage(LOGGING_INFO));
  EXPECT_FALSE(ShouldCreateLogMessage(LOGGING_INFO - 1));
}

TEST_F(LoggingTest, NoLevelSilencesFatalRecords) {
  SetMinLogLevel(INT_MAX);
  EXPECT_FALSE(ShouldCreateLogMessage(LOGGING_ERROR));
  EXPECT_TRUE(ShouldCreateLogMessage(LOGGING_FATAL));
}

TEST_F(LoggingDeathTest, FatalRecordIsWrittenAndEndsTheProcess) {
  EXPECT_EXIT(LOG(FATAL) << "Last words", DiedOfATrap,
              MatchesRegex("\\[.*:FATAL:src/base/logging_unittest\\.cc"
                           "\\([0-9]+\\)\\] Last words\n"));
}

TEST_F(LoggingDeathTest, FatalRecordEndsTheProcessAlthoughSwallowed) {
  SetLogMessageHandler(Swallow);
  EXPECT_EXIT(LOG(FATAL) << "Last words", DiedOfATrap, IsEmpty());
}

// A socket that keeps the boundaries of writes takes the place of standard
// error.
TEST_F(LoggingTest, RecordLeavesInASingleWrite) {
  int sockets[2];
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET, 0, sockets), 0);
  const int standard_error = dup(STDERR_FILENO);
  ASSERT_EQ(dup2(sockets[0], STDERR_FILENO), STDERR_FILENO);
  LOG(INFO) << "First " << 1 << " of " << 2;
  LOG(INFO) << "Second";
  ASSERT_EQ(dup2(standard_error, STDERR_FILENO), STDERR_FILENO);
  close(standard_error);
  close(sockets[0]);

  std::vector<std::string> writes;
  char buffer[4096];
  ssize_t size;
  while ((size = read(sockets[1], buffer, sizeof buffer)) > 0)
    writes.emplace_back(buffer, static_cast<size_t>(size));
  close(sockets[1]);
  EXPECT_THAT(writes, ElementsAre(MatchesRegex("\\[.*\\] First 1 of 2\n"),
                                  MatchesRegex("\\[.*\\] Second\n")));
}

std::atomic<int> g_counted;

bool Count(int, const char*, int, size_t, const std::string&) {
  ++g_counted;
  return true;
}

// ThreadSanitizer sees whether the changes race with the records.
TEST_F(LoggingTest, LevelAndHandlerMayChangeWhileAnotherThreadLogs) {
  constexpr int kRecords = 1000;
  SetLogMessageHandler(Count);
  std::thread logger([] {
    for (int i = 0; i < kRecords; ++i)
      LOG(INFO) << i;
  });
  for (int i = 0; i < kRecords; ++i) {
    SetMinLogLevel(LOGGING_INFO - i % 2);
    SetLogMessageHandler(Count);
  }
  logger.join();
  EXPECT_EQ(g_counted, kRecords);
}

}  // namespace
}  // namespace logging
