// Runs a model test: many random steps, after each of which the real objects
// are compared with a model.
//
// A Model is constructed from a Choice and has Step() and Check(), which report
// through GoogleTest's assertions.

#ifndef CORE_COMMON_RPC_TESTING_MODEL_RUN_H_
#define CORE_COMMON_RPC_TESTING_MODEL_RUN_H_

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <random>
#include <span>

#include "core/common/rpc/testing/choice.h"

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

// Chooses at random.
template <typename Model>
void RunModel() {
  std::mt19937 random(ModelSeed());
  Model model([&random](int n) {
    return std::uniform_int_distribution<int>(0, n - 1)(random);
  });
  for (int step = 0; step < kModelSteps; ++step) {
    model.Step();
    model.Check();
    ASSERT_FALSE(testing::Test::HasFailure()) << "at step " << step;
  }
}

// Takes each choice from one byte. Stops after the step that uses the last one.
template <typename Model>
void RunModelOn(std::span<const uint8_t> choices) {
  size_t made = 0;
  Model model(
      [&](int n) { return made < choices.size() ? choices[made++] % n : 0; });
  while (made < choices.size()) {
    model.Step();
    model.Check();
  }
}

}  // namespace torvane

#endif  // CORE_COMMON_RPC_TESTING_MODEL_RUN_H_
