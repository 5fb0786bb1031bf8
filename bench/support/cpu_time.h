// CPU time of processes.
//
// Failure: ends the process with a message.

#ifndef BENCH_SUPPORT_CPU_TIME_H_
#define BENCH_SUPPORT_CPU_TIME_H_

#include <sys/types.h>

#include <vector>

namespace bench {

// Of this process and `others` together, in nanoseconds.
double CpuTime(const std::vector<pid_t>& others);

}  // namespace bench

#endif  // BENCH_SUPPORT_CPU_TIME_H_
