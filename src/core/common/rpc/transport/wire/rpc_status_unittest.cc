#include "core/common/rpc/transport/wire/rpc_status.h"

#include <gtest/gtest.h>

#include <cstdint>

namespace rpc::transport {
namespace {

TEST(RpcStatusTest, CanonicalCodesArriveAsTheyAre) {
  for (int code = 1; code <= 16; ++code) {
    RpcStatus wire;
    wire.set_code(code);
    wire.set_text("why");
    EXPECT_EQ(FromWire(wire),
              absl::Status(static_cast<absl::StatusCode>(code), "why"));
  }
  EXPECT_EQ(FromWire(RpcStatus()), absl::OkStatus());
}

// Cut to 32 bits, the last two would be OK and NOT_FOUND.
TEST(RpcStatusTest, AnyOtherCodeIsUnknownWithItsNumber) {
  for (const int64_t code :
       {int64_t{17}, int64_t{-1}, int64_t{1} << 32, (int64_t{1} << 32) + 5}) {
    RpcStatus wire;
    wire.set_code(code);
    wire.set_text("why");
    EXPECT_EQ(
        FromWire(wire),
        absl::UnknownError("status code " + std::to_string(code) + ": why"));
  }
}

}  // namespace
}  // namespace rpc::transport
