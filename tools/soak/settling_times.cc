#include "tools/soak/settling_times.h"

#include <algorithm>
#include <cmath>

namespace soak {

void SettlingTimes::Add(Duration duration) {
  ++count_;
  longest_ = std::max(longest_, duration);
  const auto steps =
      std::max<int64_t>(0, (duration - Duration(1)) / Duration(kStep));
  if (static_cast<size_t>(steps) < steps_.size())
    ++steps_[static_cast<size_t>(steps)];
}

SettlingTimes::Duration SettlingTimes::Within(double share) const {
  const auto wanted =
      static_cast<uint64_t>(std::ceil(share * static_cast<double>(count_)));
  uint64_t done = 0;
  for (size_t step = 0; step < steps_.size(); ++step) {
    done += steps_[step];
    if (done >= wanted && done > 0)
      return std::min<Duration>(longest_, kStep * (step + 1));
  }
  return longest_;
}

}  // namespace soak
