// Runs a model test: many random steps, and a comparison after each.

#ifndef CORE_COMMON_RPC_TESTING_MODEL_RUN_H_
#define CORE_COMMON_RPC_TESTING_MODEL_RUN_H_

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <random>

namespace torvane {

inline constexpr int kModelSteps = 100'000;

// The seed of this run, printed so that a failing run can be repeated with
// MODEL_SEED.
inline uint32_t ModelSeed() {
  const char* given = std::getenv("MODEL_SEED");
  const uint32_t seed =
      given ? static_cast<uint32_t>(std::stoul(given)) : std::random_device()();
  std::cout << "MODEL_SEED=" << seed << std::endl;
  return seed;
}

// Model is constructed from the seed and has Step() and Check(), which report
// through GoogleTest's assertions.
template <typename Model>
void RunModel() {
  Model model(ModelSeed());
  for (int step = 0; step < kModelSteps; ++step) {
    model.Step();
    model.Check();
    ASSERT_FALSE(testing::Test::HasFailure()) << "at step " << step;
  }
}

}  // namespace torvane

#endif  // CORE_COMMON_RPC_TESTING_MODEL_RUN_H_
