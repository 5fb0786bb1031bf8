// What a server is doing at one moment: who is connected and what of theirs is
// under way. A transport's server makes it, the status service tells it.
//
// Ages count from the moment of the report backwards.
//
// Ownership: the caller's. Plain values that refer to nothing, so that a report
// may outlive its server.

#ifndef CORE_COMMON_RPC_SERVING_SERVER_REPORT_H_
#define CORE_COMMON_RPC_SERVING_SERVER_REPORT_H_

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "core/common/rpc/serving/counters.h"

namespace rpc::serving {

// Pending questions that are told of one by one, the oldest, for each
// connection. What is wrong with a client can be seen from the first few; there
// may be any number.
inline constexpr size_t kReportedQuestions = 10;

// A question that waits for its answer.
struct QuestionReport {
  // With its service and package: "rpc.BrowserWindow.OnCloseWindow".
  std::string method;
  // The value of the window's BrowserId.
  int64_t window = 0;
  std::chrono::nanoseconds age{0};
};

struct ConnectionReport {
  // Counts from 1, in the order in which clients connected; never used again.
  uint64_t id = 0;

  // The process at the other end, when it connected. What it calls itself, with
  // escapes where it can't be shown, is empty before its hello.
  pid_t pid = 0;
  uid_t user = 0;
  std::string name;

  std::chrono::nanoseconds age{0};

  // Unary calls whose methods have not run their closures, as max_calls counts
  // them: with those that the client has given up.
  size_t calls = 0;
  size_t streams = 0;
  size_t subscriptions = 0;
  size_t questions = 0;
  // Bytes that wait to be written to the client.
  size_t queued_bytes = 0;

  // The oldest first.
  std::vector<QuestionReport> oldest_questions;
};

struct ServerReport {
  Counters counters;
  // The oldest first, with those of clients that have left and whose streams
  // have to end yet.
  std::vector<ConnectionReport> connections;
};

}  // namespace rpc::serving

#endif  // CORE_COMMON_RPC_SERVING_SERVER_REPORT_H_
