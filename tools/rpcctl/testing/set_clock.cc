// Preloaded into a program, sets the clock of the day whenever it is looked at:
// by the hours in SET_CLOCK, "-1" or "1". The steady clock goes on.

#include <stdlib.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

#include <atomic>

namespace {

constexpr time_t kHour = 60 * 60;

std::atomic<time_t> g_looks = 0;

time_t StepOfALook() {
  const char* const hours = getenv("SET_CLOCK");
  return kHour * (hours ? atoi(hours) : 0);
}

bool IsOfTheDay(clockid_t clock) {
  return clock == CLOCK_REALTIME || clock == CLOCK_REALTIME_COARSE;
}

}  // namespace

extern "C" int clock_gettime(clockid_t clock, timespec* now) {
  if (syscall(SYS_clock_gettime, clock, now) != 0)
    return -1;
  if (IsOfTheDay(clock))
    now->tv_sec += StepOfALook() * ++g_looks;
  return 0;
}

extern "C" int gettimeofday(timeval* now, void*) {
  timespec precisely;
  if (clock_gettime(CLOCK_REALTIME, &precisely) != 0)
    return -1;
  now->tv_sec = precisely.tv_sec;
  now->tv_usec = precisely.tv_nsec / 1000;
  return 0;
}

extern "C" time_t time(time_t* now) {
  timespec precisely;
  clock_gettime(CLOCK_REALTIME, &precisely);
  if (now)
    *now = precisely.tv_sec;
  return precisely.tv_sec;
}
