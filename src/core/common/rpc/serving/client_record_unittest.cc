#include "core/common/rpc/serving/client_record.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

#include "base/logging.h"

namespace rpc::serving {
namespace {

using Records = std::vector<std::string>;

// Keeps the texts of all records.
class ClientRecordTest : public ::testing::Test {
 protected:
  ClientRecordTest() {
    records_.clear();
    logging::SetLogMessageHandler(&Keep);
  }
  ~ClientRecordTest() override { logging::SetLogMessageHandler(nullptr); }

  static Records TakeRecords() { return std::exchange(records_, {}); }

  Counters counters_;
  ClientRecord client_{{4711, 1000}, counters_};

 private:
  static bool Keep(int,
                   const char*,
                   int,
                   size_t message_start,
                   const std::string& record) {
    records_.push_back(
        record.substr(message_start, record.size() - message_start - 1));
    return true;
  }

  static inline Records records_;
};

TEST_F(ClientRecordTest, NamesTheProcessUntilTheClientSaysItsName) {
  EXPECT_EQ(client_.name(), "");
  EXPECT_EQ(client_.peer(), "pid 4711");
  client_.set_name("windowctl");
  EXPECT_EQ(client_.name(), "windowctl");
  EXPECT_EQ(client_.peer(), "windowctl (pid 4711)");
  EXPECT_EQ(client_.process().pid, 4711);
  EXPECT_EQ(client_.process().user, 1000u);
}

TEST_F(ClientRecordTest, ReportsTheProcessAndTheNameThatIsShown) {
  client_.set_name("a\nb");
  ConnectionReport report;
  client_.Report(report);
  EXPECT_EQ(report.pid, 4711);
  EXPECT_EQ(report.user, 1000u);
  EXPECT_EQ(report.name, "a\\nb");
}

TEST_F(ClientRecordTest, ShowsNamesWithEscapesAndNotAtAnyLength) {
  client_.set_name("a\nb\xff");
  EXPECT_EQ(client_.name(), "a\\nb\\xff");
  client_.set_name(std::string(64, 'x') + "y");
  EXPECT_EQ(client_.name(), std::string(64, 'x'));
}

TEST_F(ClientRecordTest, CountsARefusalEachTimeAndLogsItOnce) {
  client_.set_name("windowctl");
  const absl::Status why = absl::ResourceExhaustedError("max_calls, 2");
  EXPECT_EQ(client_.NoteLimit(&LimitHits::max_calls, "max_calls, 2"), why);
  EXPECT_EQ(TakeRecords(),
            Records{"Refused a request of windowctl (pid 4711, user 1000): "
                    "RESOURCE_EXHAUSTED: max_calls, 2"});
  EXPECT_EQ(client_.NoteLimit(&LimitHits::max_calls, "max_calls, 2"), why);
  EXPECT_EQ(TakeRecords(), Records());
  EXPECT_EQ(counters_.limit_hits.max_calls, 2u);
  EXPECT_EQ(counters_.limit_hits.max_streams, 0u);
}

TEST_F(ClientRecordTest, LogsEachLimitAndEachClientOnItsOwn) {
  client_.NoteLimit(&LimitHits::max_calls, "a").IgnoreError();
  client_.NoteLimit(&LimitHits::max_streams, "b").IgnoreError();
  ClientRecord other({1, 0}, counters_);
  other.NoteLimit(&LimitHits::max_calls, "c").IgnoreError();
  EXPECT_EQ(
      TakeRecords(),
      (Records{
          "Refused a request of pid 4711, user 1000: RESOURCE_EXHAUSTED: a",
          "Refused a request of pid 4711, user 1000: RESOURCE_EXHAUSTED: b",
          "Refused a request of pid 1, user 0: RESOURCE_EXHAUSTED: c"}));
  EXPECT_EQ(counters_.limit_hits.max_calls, 2u);
}

TEST_F(ClientRecordTest, LogsWhyTheConnectionWasClosedUnlessTheClientLeft) {
  client_.OnClosed(absl::UnavailableError("gone"));
  EXPECT_EQ(TakeRecords(), Records());
  client_.OnClosed(absl::InvalidArgumentError("a second hello"));
  EXPECT_EQ(TakeRecords(),
            Records{"Closed the connection of pid 4711, user 1000: "
                    "INVALID_ARGUMENT: a second hello"});
}

}  // namespace
}  // namespace rpc::serving
