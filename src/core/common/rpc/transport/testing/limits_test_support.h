// A server whose limits a test exceeds, what the server counts and records
// then, and a client that must not notice.

#ifndef CORE_COMMON_RPC_TRANSPORT_TESTING_LIMITS_TEST_SUPPORT_H_
#define CORE_COMMON_RPC_TRANSPORT_TESTING_LIMITS_TEST_SUPPORT_H_

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include "absl/status/status.h"
#include "absl/strings/str_cat.h"
#include "core/common/rpc/serving/counters.h"
#include "core/common/rpc/serving/limit_table.h"
#include "core/common/rpc/serving/limits.h"
#include "core/common/rpc/testing/log_capture.h"
#include "core/common/rpc/transport/testing/lab.h"

namespace rpc::transport {

using Hits = std::map<std::string, uint64_t>;

// How often each limit has taken effect, without those that have not.
inline Hits HitsOf(const serving::Counters& counters) {
  Hits hits;
  for (const serving::LimitInfo& limit : serving::kLimitTable) {
    if (const uint64_t count = counters.limit_hits.*limit.hits; count > 0) {
      hits[limit.name] = count;
    }
  }
  return hits;
}

// A server with small limits, and a client that must notice nothing of what
// others run into.
class LimitsTest : public ::testing::Test {
 protected:
  void Serve(const serving::Limits& limits) {
    ServerOptions options;
    options.limits = limits;
    lab_.emplace(options);
    ClientOptions bystander;
    bystander.name = "bystander";
    bystander_ = lab_->NewClient(bystander);
  }
  std::unique_ptr<Client> NewClient() {
    ClientOptions options;
    options.name = "tester";
    return lab_->NewClient(options);
  }

  // Texts of the host's records since the last time.
  std::vector<std::string> TakeRecords() { return log_.TakeTexts(); }
  // How records name a client.
  static std::string Who(const std::string& name) {
    return absl::StrCat(name, " (", Process(), ")");
  }
  static std::string Process() {
    return absl::StrCat("pid ", getpid(), ", user ", getuid());
  }

  Hits hits() { return HitsOf(lab_->server->counters()); }

  // What a client was told at a limit, how often each limit has taken effect,
  // and the host's records since the last time.
  using Outcome = std::tuple<absl::Status, Hits, std::vector<std::string>>;

  Outcome OutcomeOf(const absl::Status& told) {
    return {told, hits(), TakeRecords()};
  }
  // The outcome for a limit that has taken effect once.
  static Outcome Closed(const std::string& who,
                        const std::string& limit,
                        const absl::Status& why) {
    return {
        why,
        {{limit, 1}},
        {absl::StrCat("Closed the connection of ", who, ": ", why.ToString())}};
  }
  static Outcome Refused(const std::string& who,
                         const std::string& limit,
                         const absl::Status& why) {
    return {why,
            {{limit, 1}},
            {absl::StrCat("Refused a request of ", who, ": ", why.ToString())}};
  }

  void ExpectBystanderIsServed() {
    EXPECT_EQ(CallText(*bystander_, &lab::Lab_Stub::Echo, "still here").value(),
              "still here");
  }

  std::optional<Lab> lab_;

 private:
  torvane::LogCapture log_;
  std::unique_ptr<Client> bystander_;
};

}  // namespace rpc::transport

#endif  // CORE_COMMON_RPC_TRANSPORT_TESTING_LIMITS_TEST_SUPPORT_H_
