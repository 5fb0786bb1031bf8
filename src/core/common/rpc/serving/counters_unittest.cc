#include "core/common/rpc/serving/counters.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <bit>
#include <cstdint>

namespace rpc::serving {
namespace {

using ::testing::Each;

TEST(Counters, BeginAtZero) {
  using Values = std::array<uint64_t, sizeof(Counters) / sizeof(uint64_t)>;
  EXPECT_THAT(std::bit_cast<Values>(Counters()), Each(0u));
}

}  // namespace
}  // namespace rpc::serving
