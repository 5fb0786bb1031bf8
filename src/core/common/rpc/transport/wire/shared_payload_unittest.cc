#include "core/common/rpc/transport/wire/shared_payload.h"

#include <gtest/gtest.h>

namespace rpc::transport {
namespace {

TEST(SharedPayloadTest, TheSameBytesAreOneCopyForAsLongAsItIsUsed) {
  const std::string bytes(100'000, 'x');
  const SharedPayload first = SharePayload(bytes);
  EXPECT_EQ(*first, bytes);
  EXPECT_EQ(SharePayload(std::string(bytes)), first);
  const std::weak_ptr<const std::string> unused = SharePayload("of nobody");
  EXPECT_TRUE(unused.expired());
}

TEST(SharedPayloadTest, OtherBytesAreAnotherCopy) {
  const SharedPayload first = SharePayload("one");
  const SharedPayload second = SharePayload("two");
  EXPECT_EQ(*first, "one");
  EXPECT_EQ(*second, "two");
  EXPECT_EQ(*SharePayload("twos"), "twos");
}

}  // namespace
}  // namespace rpc::transport
