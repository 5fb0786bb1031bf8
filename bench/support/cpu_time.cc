#include "bench/support/cpu_time.h"

#include <time.h>

#include "bench/support/process_pair.h"

namespace bench {
namespace {

double CpuTimeOf(clockid_t clock) {
  timespec time;
  if (clock_gettime(clock, &time) != 0)
    FailWithErrno("clock_gettime");
  return static_cast<double>(time.tv_sec) * 1e9 +
         static_cast<double>(time.tv_nsec);
}

}  // namespace

double CpuTime(const std::vector<pid_t>& others) {
  double sum = CpuTimeOf(CLOCK_PROCESS_CPUTIME_ID);
  for (const pid_t process : others) {
    clockid_t clock;
    if (clock_getcpuclockid(process, &clock) != 0)
      Fail("a process to be measured has gone");
    sum += CpuTimeOf(clock);
  }
  return sum;
}

}  // namespace bench
