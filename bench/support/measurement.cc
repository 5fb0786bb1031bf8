#include "bench/support/measurement.h"

#include <time.h>

#include <algorithm>
#include <cstdio>
#include <numeric>
#include <utility>

#include "bench/support/cpu_time.h"

namespace bench {
namespace {

constexpr int64_t kWarmUpNanoseconds = 100'000'000;
constexpr int64_t kNanoseconds = 400'000'000;

// Reserved in advance: more laps than any peer makes, so that none pays for
// growing the vector.
constexpr size_t kLaps = 2'000'000;

int64_t Now() {
  timespec time;
  clock_gettime(CLOCK_MONOTONIC, &time);
  return int64_t{time.tv_sec} * 1'000'000'000 + time.tv_nsec;
}

}  // namespace

Measurement::Measurement(const ProcessPair& pair, int operations_per_lap)
    : Measurement(std::vector<pid_t>{pair.other()}, operations_per_lap) {}

Measurement::Measurement(std::vector<pid_t> others, int operations_per_lap)
    : others_(std::move(others)),
      operations_per_lap_(operations_per_lap),
      laps_(kLaps) {
  laps_.clear();
}

bool Measurement::Next() {
  const int64_t now = Now();
  if (end_ != 0) {
    laps_.push_back(static_cast<uint32_t>(now - last_));
    last_ = now;
    if (now < end_)
      return true;
    cpu_time_ = CpuTime(others_) - cpu_time_;
    return false;
  }
  if (warm_ == 0)
    warm_ = now + kWarmUpNanoseconds;
  if (now >= warm_) {
    cpu_time_ = CpuTime(others_);
    last_ = Now();
    end_ = last_ + kNanoseconds;
  }
  return true;
}

void Measurement::Print() {
  const double operations =
      static_cast<double>(laps_.size()) * operations_per_lap_;
  const double total = std::accumulate(laps_.begin(), laps_.end(), 0.0);
  std::sort(laps_.begin(), laps_.end());
  const auto percentile = [this](size_t percent) {
    return laps_[laps_.size() * percent / 100] /
           static_cast<double>(operations_per_lap_);
  };
  printf(
      "{\"mean\": %.1f, \"p50\": %.1f, \"p99\": %.1f, \"cpu\": %.1f, "
      "\"rate\": %.1f}\n",
      total / operations, percentile(50), percentile(99),
      cpu_time_ / operations, operations / total * 1e9);
}

}  // namespace bench
