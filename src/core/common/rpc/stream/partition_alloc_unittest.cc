// What a stream's checked pointers do with the allocator that they were made
// for: a service that is destroyed under an open stream is not reused.
//
// Built where the build has PartitionAlloc.

#include <google/protobuf/descriptor.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <type_traits>
#include <vector>

#include "base/memory/raw_ptr.h"
#include "core/common/rpc/stream/abstract_stream.h"
#include "core/common/rpc/stream/service.h"
#include "core/common/rpc/testing/fake_endpoint.h"
#include "core/common/rpc/testing/forged_method.h"
#include "partition_alloc/internal/partition_root_internal.h"
#include "partition_alloc/partition_address_space.h"
#include "partition_alloc/slot_address_and_size.h"
#include "rpc/browser/browser_window.rpc.h"

namespace torvane {
namespace {

using google::protobuf::MethodDescriptor;
using partition_alloc::PartitionRoot;
using rpc::BrowserWindowRpc;

template <typename T>
constexpr bool kIsBackupRefPtr =
    std::is_same_v<typename raw_ptr<T>::Impl,
                   base::internal::RawPtrBackupRefImpl<>>;
static_assert(kIsBackupRefPtr<Service>);
static_assert(kIsBackupRefPtr<const MethodDescriptor>);

bool IsInProtectedPool(const void* address) {
  return partition_alloc::IsManagedByPartitionAllocBRPPool(
      reinterpret_cast<uintptr_t>(address));
}

// Whether checked pointers refer to the slot of the live object at `address`,
// which lies in the protected pool.
bool IsReferenced(const void* address) {
  const auto [start, size] = partition_alloc::SlotAddressAndSize::FromBRPPool(
      reinterpret_cast<uintptr_t>(address));
  return !PartitionRoot::InSlotMetadataPointerFromSlotStartAndSize(
              partition_alloc::internal::UntaggedSlotStart(start), size)
              ->IsAliveWithNoKnownRefs();
}

// Allocates `size` bytes again and again, keeping them all, and returns whether
// `address` was among them.
bool IsHandedOutAgain(const void* address, size_t size) {
  constexpr int kAllocations = 10'000;
  std::vector<std::unique_ptr<char[]>> kept(kAllocations);
  return std::any_of(kept.begin(), kept.end(), [&](auto& memory) {
    memory.reset(new char[size]);
    return memory.get() == address;
  });
}

const std::unique_ptr<int> made_before_main = std::make_unique<int>();

TEST(ProtectedPool, HoldsWhatTheProgramAllocates) {
  EXPECT_TRUE(IsInProtectedPool(std::make_unique<int>().get()));
  EXPECT_TRUE(IsInProtectedPool(std::make_unique<char[]>(1 << 20).get()));
  const std::unique_ptr<void, void (*)(void*)> memory(std::malloc(100), &free);
  EXPECT_TRUE(IsInProtectedPool(memory.get()));
}

TEST(ProtectedPool, HoldsWhatStaticInitialisersAllocate) {
  EXPECT_TRUE(IsInProtectedPool(made_before_main.get()));
}

// Addresses of memory of the size of a method. Numbers, since a pointer to
// memory that was freed may not even be compared.
using TwoAddresses = std::array<uintptr_t, 2>;

TwoAddresses AllocateTwo() {
  TwoAddresses addresses = {};
  for (uintptr_t& address : addresses) {
    address =
        reinterpret_cast<uintptr_t>(operator new(sizeof(MethodDescriptor)));
  }
  return addresses;
}

void FreeInOrder(const TwoAddresses& addresses) {
  for (const uintptr_t address : addresses)
    operator delete(reinterpret_cast<void*>(address));
}

// What ReleasesItsMethodBeforeItsService rests on.
TEST(ProtectedPool, HandsOutFirstWhatItGotBackLast) {
  const TwoAddresses once = AllocateTwo();
  FreeInOrder(once);
  const TwoAddresses again = AllocateTwo();
  EXPECT_EQ(again, (TwoAddresses{once[1], once[0]}));
  FreeInOrder(again);
}

TEST(CheckedPointer, StoresAnAddressOutsideThePoolAsItIs) {
  BrowserWindowRpc on_stack;
  ASSERT_FALSE(IsInProtectedPool(&on_stack));
  Service* const address = &on_stack;
  const raw_ptr<Service> pointer = address;
  EXPECT_EQ(pointer.get(), address);
  static_assert(sizeof(pointer) == sizeof(address));
  EXPECT_EQ(std::memcmp(&pointer, &address, sizeof(address)), 0);
}

// By the index of a streaming method.
class StreamOnPartitionAllocTest : public testing::TestWithParam<int> {
 protected:
  static const MethodDescriptor* Method() {
    return BrowserWindowRpc::descriptor()->method(GetParam());
  }

  static std::unique_ptr<AbstractStream> OpenOn(
      Service& service,
      const MethodDescriptor* method = Method()) {
    return service.OpenStream(method, MakeChannel());
  }

  // Delivers an empty frame that has the stream ask its service for a prototype
  // and then do nothing.
  static void UseService(AbstractStream& stream) {
    rpc::transport::StreamMessage frame;
    if (Method()->input_type() == rpc::EventSubscription::descriptor())
      return stream.OnNext(&frame);
    stream.OnError(&frame);
  }
};

INSTANTIATE_TEST_SUITE_P(EveryStreamingMethod,
                         StreamOnPartitionAllocTest,
                         testing::Range(37, 41));

TEST_P(StreamOnPartitionAllocTest, RefersToItsServiceAndMethodWhileItExists) {
  const auto service = std::make_unique<BrowserWindowRpc>();
  const ForgedMethod method(Method(), GetParam());
  ASSERT_TRUE(IsInProtectedPool(service.get()));
  ASSERT_TRUE(IsInProtectedPool(method.get()));
  EXPECT_FALSE(IsReferenced(service.get()));
  EXPECT_FALSE(IsReferenced(method.get()));

  auto stream = OpenOn(*service, method.get());
  EXPECT_TRUE(IsReferenced(service.get()));
  EXPECT_TRUE(IsReferenced(method.get()));

  stream.reset();
  EXPECT_FALSE(IsReferenced(service.get()));
  EXPECT_FALSE(IsReferenced(method.get()));
}

TEST_P(StreamOnPartitionAllocTest, HoldsAReferenceOfItsOwn) {
  const auto service = std::make_unique<BrowserWindowRpc>();
  auto first = OpenOn(*service);
  auto second = OpenOn(*service);
  first.reset();
  EXPECT_TRUE(IsReferenced(service.get()));
  second.reset();
  EXPECT_FALSE(IsReferenced(service.get()));
}

// As large as a method, so that both come from the same slots.
struct LargeService : BrowserWindowRpc {
  char padding[sizeof(MethodDescriptor) - sizeof(BrowserWindowRpc)] = {};
};
static_assert(sizeof(LargeService) == sizeof(MethodDescriptor));

// Both slots are only waiting for the stream.
TEST_P(StreamOnPartitionAllocTest, ReleasesItsMethodBeforeItsService) {
  auto service = std::make_unique<LargeService>();
  auto method = std::make_unique<ForgedMethod>(Method(), GetParam());
  const auto service_address = reinterpret_cast<uintptr_t>(service.get());
  const auto method_address = reinterpret_cast<uintptr_t>(method->get());
  auto stream = OpenOn(*service, method->get());
  service.reset();
  method.reset();

  stream.reset();
  const auto [last_back, first_back] = AllocateTwo();
  EXPECT_EQ(last_back, service_address);
  EXPECT_EQ(first_back, method_address);
  FreeInOrder({last_back, first_back});
}

TEST_P(StreamOnPartitionAllocTest, WritesNothingAroundAServiceOutsideThePool) {
  struct {
    std::array<char, 64> before;
    BrowserWindowRpc service;
    std::array<char, 64> after;
  } on_stack;
  on_stack.before.fill('b');
  on_stack.after.fill('a');
  const auto before = on_stack.before;
  const auto after = on_stack.after;
  ASSERT_FALSE(IsInProtectedPool(&on_stack.service));

  auto stream = OpenOn(on_stack.service);
  UseService(*stream);
  EXPECT_EQ(on_stack.before, before);
  EXPECT_EQ(on_stack.after, after);
  stream.reset();
  EXPECT_EQ(on_stack.before, before);
  EXPECT_EQ(on_stack.after, after);
}

TEST_P(StreamOnPartitionAllocTest, KeepsADeletedServiceFromBeingReused) {
  auto service = std::make_unique<BrowserWindowRpc>();
  const void* const address = service.get();
  auto stream = OpenOn(*service);
  service.reset();
  EXPECT_FALSE(IsHandedOutAgain(address, sizeof(BrowserWindowRpc)));
  stream.reset();
  EXPECT_TRUE(IsHandedOutAgain(address, sizeof(BrowserWindowRpc)));
}

TEST_P(StreamOnPartitionAllocTest, KeepsADeletedServiceUntilItsLastStreamEnds) {
  auto service = std::make_unique<BrowserWindowRpc>();
  const void* const address = service.get();
  auto first = OpenOn(*service);
  auto second = OpenOn(*service);
  service.reset();
  first.reset();
  EXPECT_FALSE(IsHandedOutAgain(address, sizeof(BrowserWindowRpc)));
  second.reset();
  EXPECT_TRUE(IsHandedOutAgain(address, sizeof(BrowserWindowRpc)));
}

using StreamOnPartitionAllocDeathTest = StreamOnPartitionAllocTest;

INSTANTIATE_TEST_SUITE_P(EveryStreamingMethod,
                         StreamOnPartitionAllocDeathTest,
                         testing::Range(37, 41));

// A trap, not an invalid access: the dead service is never entered.
TEST_P(StreamOnPartitionAllocDeathTest, DiesAtTheFrameAfterItsServiceDied) {
  auto service = std::make_unique<BrowserWindowRpc>();
  const auto stream = OpenOn(*service);
  service.reset();
  rpc::transport::StreamMessage frame;
  EXPECT_EXIT(stream->OnNext(&frame), testing::KilledBySignal(SIGTRAP),
              "IsPointeeAlive");
}

using CallbackStreamOnPartitionAllocDeathTest = StreamOnPartitionAllocTest;

INSTANTIATE_TEST_SUITE_P(EveryCallbackStream,
                         CallbackStreamOnPartitionAllocDeathTest,
                         testing::Range(38, 41));

// The error frame of an event stream does not reach the service.
TEST_P(CallbackStreamOnPartitionAllocDeathTest,
       DiesAtTheErrorFrameAfterItsServiceDied) {
  auto service = std::make_unique<BrowserWindowRpc>();
  const auto stream = OpenOn(*service);
  service.reset();
  rpc::transport::StreamMessage frame;
  EXPECT_EXIT(stream->OnError(&frame), testing::KilledBySignal(SIGTRAP),
              "IsPointeeAlive");
}

}  // namespace
}  // namespace torvane
