// Repeats an operation until it has been measured for long enough.
//
//   Measurement measurement(pair);
//   while (measurement.Next())
//     Operate();
//   measurement.Print();
//
// For operations that end in a callback, call Next() there. The first
// operations warm up caches and allocators and are not counted. Print() writes
// one line of JSON: nanoseconds for an operation (mean, median, 99th
// percentile), CPU time of all processes for it, and operations per second.

#ifndef BENCH_SUPPORT_MEASUREMENT_H_
#define BENCH_SUPPORT_MEASUREMENT_H_

#include <sys/types.h>

#include <cstdint>
#include <vector>

#include "bench/support/process_pair.h"

namespace bench {

class Measurement {
 public:
  // Next() is called once for `operations_per_lap` operations.
  explicit Measurement(const ProcessPair& pair, int operations_per_lap = 1);

  // For processes that are no pair: counts the CPU time of this one and of
  // `others`.
  explicit Measurement(std::vector<pid_t> others, int operations_per_lap = 1);

  // Call it before the first operation and after each. True if another one is
  // to begin.
  bool Next();

  void Print();

 private:
  const std::vector<pid_t> others_;
  const int operations_per_lap_;
  int64_t warm_ = 0;
  int64_t end_ = 0;
  int64_t last_ = 0;
  double cpu_time_ = 0;
  std::vector<uint32_t> laps_;
};

}  // namespace bench

#endif  // BENCH_SUPPORT_MEASUREMENT_H_
