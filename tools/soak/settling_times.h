// How long things took: counts them, and says what most of them took.
//
//   soak::SettlingTimes times;
//   times.Add(std::chrono::milliseconds(3));
//   times.Within(0.99);    // 99 % of them took no longer
//
// Takes the same memory however many are added, since the host of a soak
// reports what its own memory has become.
//
// Ownership: a value. Sequence: any one. Failure: none.

#ifndef TOOLS_SOAK_SETTLING_TIMES_H_
#define TOOLS_SOAK_SETTLING_TIMES_H_

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace soak {

class SettlingTimes {
 public:
  using Duration = std::chrono::nanoseconds;

  // Durations are told apart by steps of this length. Those of a second and
  // longer count as the longest of all.
  static constexpr std::chrono::microseconds kStep{10};
  static constexpr std::chrono::seconds kEnd{1};

  void Add(Duration duration);

  uint64_t count() const { return count_; }

  // The time within which at least the fraction `share` of them, from 0 to 1,
  // is done, rounded up to whole steps but never beyond longest(). Zero when
  // there are none.
  Duration Within(double share) const;

  // Not rounded.
  Duration longest() const { return longest_; }

 private:
  // How many took more than n steps and no more than n + 1.
  std::vector<uint64_t> steps_ = std::vector<uint64_t>(kEnd / kStep);
  uint64_t count_ = 0;
  Duration longest_{0};
};

}  // namespace soak

#endif  // TOOLS_SOAK_SETTLING_TIMES_H_
