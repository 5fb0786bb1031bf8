// How long it took from the death of each client until the last of its
// questions was settled.
//
//   soak::Deaths deaths(&times);
//   deaths.Add(client, 3, now);      // it was killed with three questions
//   deaths.OnSettled(client, now);   // the third time, `times` has one more
//
// Ownership: `times` must outlive it. Sequence: any one. Failure: none.

#ifndef TOOLS_SOAK_DEATHS_H_
#define TOOLS_SOAK_DEATHS_H_

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>

#include "tools/soak/settling_times.h"

namespace soak {

class Deaths {
 public:
  using TimePoint = std::chrono::steady_clock::time_point;

  explicit Deaths(SettlingTimes* times) : times_(times) {}

  // A client has died with so many questions pending. Without any there is
  // nothing to measure.
  void Add(int64_t client, size_t questions, TimePoint when);

  // A question of the client has ended. Nothing happens if the client has not
  // died, or all its questions have ended.
  void OnSettled(int64_t client, TimePoint when);

  // Whether all questions of those who have died have ended.
  bool all_settled() const { return pending_.empty(); }

  // Measures no further those who have questions pending.
  void Forget() { pending_.clear(); }

 private:
  struct Death {
    TimePoint when;
    size_t questions;
  };

  SettlingTimes* const times_;
  // Of clients with questions that have not ended.
  std::map<int64_t, Death> pending_;
};

}  // namespace soak

#endif  // TOOLS_SOAK_DEATHS_H_
