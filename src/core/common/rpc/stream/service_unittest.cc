#include "core/common/rpc/stream/service.h"

#include <google/protobuf/message.h>
#include <gtest/gtest.h>

#include <type_traits>

#include "core/common/rpc/testing/virtual_slot.h"

namespace torvane {
namespace {

TEST(Service, AddsOpenStreamAfterTheOperationsOfTheGenericInterface) {
  EXPECT_EQ(SlotOf(&Service::GetDescriptor), kDestructorSlots);
  EXPECT_EQ(SlotOf(&Service::CallMethod), kDestructorSlots + 1);
  EXPECT_EQ(SlotOf(&Service::GetRequestPrototype), kDestructorSlots + 2);
  EXPECT_EQ(SlotOf(&Service::GetResponsePrototype), kDestructorSlots + 3);
  EXPECT_EQ(SlotOf(&Service::OpenStream), kDestructorSlots + 4);
}

TEST(Service, IsAGenericServiceWithAVirtualDestructorOfItsOwn) {
  EXPECT_TRUE((std::is_base_of_v<google::protobuf::Service, Service>));
  EXPECT_TRUE(std::has_virtual_destructor_v<Service>);
  EXPECT_FALSE(std::is_trivially_destructible_v<Service>);
  EXPECT_FALSE(std::is_copy_constructible_v<Service>);
}

}  // namespace
}  // namespace torvane
