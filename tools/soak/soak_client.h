// A client process of a soak: subscribes to events and answers questions about
// its windows, until it is killed or the host ends.
//
// Ownership: nothing outlives RunClient().
//
// Sequence: one thread, which runs a loop of its own.
//
// Failure: RunClient() says why the connection has ended.

#ifndef TOOLS_SOAK_SOAK_CLIENT_H_
#define TOOLS_SOAK_SOAK_CLIENT_H_

#include <cstdint>
#include <string>

#include "absl/status/status.h"

namespace soak {

// Each client has windows of its own, which no other client ever subscribes to.
inline constexpr int64_t kWindowsPerClient = 4;

// The window `index` of the client `number`, and the client of a window.
constexpr int64_t WindowOf(int64_t number, int64_t index) {
  return number * kWindowsPerClient + index;
}
constexpr int64_t ClientOf(int64_t window) {
  return window / kWindowsPerClient;
}

enum class Manner {
  // Answers most questions at once, some later and out of order, declines a
  // few, and calls the host now and then.
  kLively,
  // The same, but takes a break before each answer.
  kSlow,
  // Answers nothing.
  kSilent,
};

struct ClientOptions {
  std::string socket;
  int64_t number = 0;
  uint64_t seed = 0;
  Manner manner = Manner::kLively;
  // The inherited descriptor of the SharedTally.
  int tally = -1;
};

// Subscribes to the events and questions of all its windows and then calls
// Focus about the first of them. Returns why the connection has ended.
absl::Status RunClient(const ClientOptions& options);

}  // namespace soak

#endif  // TOOLS_SOAK_SOAK_CLIENT_H_
