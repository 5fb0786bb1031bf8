// What the stand-in and the browser's own raw_ptr have in common. Compiled
// against either, whichever the build has.

#include "base/memory/raw_ptr.h"

#include <gtest/gtest.h>

#include <concepts>
#include <cstring>
#include <new>
#include <type_traits>
#include <utility>

namespace {

struct Base {
  int value = 0;
};
struct Derived : Base {};
class NeverDefined;

// What must not compile. Arithmetic has tests of its own, since the browser's
// raw_ptr refuses it where no concept looks (raw_ptr_refusals_unittest.cc).

template <typename P>
concept CanReset = requires(P p) {
  p.reset();
};
template <typename P>
concept CanRelease = requires(P p) {
  p.release();
};
static_assert(!CanReset<raw_ptr<Base>>);
static_assert(!CanRelease<raw_ptr<Base>>);
static_assert(!std::constructible_from<raw_ptr<Derived>, raw_ptr<Base>>);
static_assert(!std::constructible_from<raw_ptr<Derived>, Base*>);
static_assert(!std::assignable_from<raw_ptr<Derived>&, raw_ptr<Base>>);
static_assert(!std::constructible_from<raw_ptr<Base>, const Base*>);
static_assert(!std::constructible_from<raw_ptr<Base>, raw_ptr<const Base>>);
static_assert(!std::constructible_from<raw_ptr<Base>, raw_ptr<int>>);

// What must compile, and without a cast.

static_assert(std::same_as<raw_ptr<Base>, base::raw_ptr<Base>>);
static_assert(sizeof(raw_ptr<Base>) == sizeof(Base*));
static_assert(std::convertible_to<Base*, raw_ptr<Base>>);
static_assert(std::convertible_to<std::nullptr_t, raw_ptr<Base>>);
static_assert(std::convertible_to<Derived*, raw_ptr<Base>>);
static_assert(std::convertible_to<raw_ptr<Derived>, raw_ptr<Base>>);
static_assert(std::convertible_to<raw_ptr<Base>, raw_ptr<const Base>>);
static_assert(std::convertible_to<raw_ptr<Base>, Base*>);
static_assert(std::convertible_to<raw_ptr<Derived>, const Base*>);
static_assert(std::is_nothrow_move_constructible_v<raw_ptr<Base>>);

constexpr int kAnswer = 42;
static_assert(*raw_ptr<const int>(&kAnswer) == 42);
static_assert(raw_ptr<const int>() == nullptr);

TEST(RawPtr, IsNullWhenNothingIsGiven) {
  // Storage that is not zero by chance.
  alignas(raw_ptr<Base>) unsigned char storage[sizeof(raw_ptr<Base>)];
  std::memset(storage, 0xAB, sizeof storage);
  auto* pointer = new (storage) raw_ptr<Base>;
  EXPECT_EQ(pointer->get(), nullptr);
  pointer->~raw_ptr();
}

TEST(RawPtr, ReachesItsTarget) {
  Base target{.value = 7};
  raw_ptr<Base> pointer = &target;
  EXPECT_EQ(pointer.get(), &target);
  EXPECT_EQ(&*pointer, &target);
  EXPECT_EQ(pointer->value, 7);
  Base* plain = pointer;
  EXPECT_EQ(plain, &target);
}

TEST(RawPtr, CopyLeavesTheSourceAlone) {
  Base target;
  raw_ptr<Base> source = &target;
  raw_ptr<Base> copy = source;
  raw_ptr<Base> assigned;
  assigned = source;
  EXPECT_EQ(copy, &target);
  EXPECT_EQ(assigned, &target);
  EXPECT_EQ(source, &target);
}

TEST(RawPtr, MoveConstructionLeavesTheSourceNull) {
  Base target;
  raw_ptr<Base> source = &target;
  raw_ptr<Base> moved = std::move(source);
  EXPECT_EQ(moved, &target);
  EXPECT_EQ(source, nullptr);
}

TEST(RawPtr, MoveAssignmentLeavesTheSourceNull) {
  Base target, other;
  raw_ptr<Base> source = &target;
  raw_ptr<Base> moved = &other;
  moved = std::move(source);
  EXPECT_EQ(moved, &target);
  EXPECT_EQ(source, nullptr);
}

TEST(RawPtr, MovedOntoItselfKeepsItsTarget) {
  Base target;
  raw_ptr<Base> pointer = &target;
  raw_ptr<Base>& same = pointer;
  pointer = std::move(same);
  EXPECT_EQ(pointer, &target);
}

TEST(RawPtr, UpcastsByCopyAndByMove) {
  Derived target;
  raw_ptr<Derived> source = &target;
  raw_ptr<Base> copy = source;
  EXPECT_EQ(copy, &target);
  EXPECT_EQ(source, &target);
  raw_ptr<const Base> moved = std::move(source);
  EXPECT_EQ(moved, &target);
  EXPECT_EQ(source, nullptr);
}

TEST(RawPtr, AssignedNullForgetsItsTarget) {
  Base target;
  raw_ptr<Base> pointer = &target;
  pointer = nullptr;
  EXPECT_EQ(pointer, nullptr);
  EXPECT_FALSE(pointer);
}

TEST(RawPtr, ComparesLikeAPlainPointer) {
  Derived targets[2];
  raw_ptr<Base> first = &targets[0];
  raw_ptr<const Derived> same = &targets[0];
  raw_ptr<Base> second = &targets[1];
  EXPECT_TRUE(first == same);
  EXPECT_TRUE(first != second);
  EXPECT_TRUE(first == &targets[0]);
  EXPECT_TRUE(&targets[1] == second);
  EXPECT_TRUE(first != nullptr);
  EXPECT_TRUE(first < second);
}

TEST(RawPtr, PointsToATypeThatIsNeverDefined) {
  int storage = 0;
  auto* opaque = reinterpret_cast<NeverDefined*>(&storage);
  raw_ptr<NeverDefined> pointer = opaque;
  raw_ptr<const NeverDefined> constant = pointer;
  EXPECT_EQ(constant, opaque);
}

// The bytes are read after the end of the object's life on purpose: this is
// what a use after free would find.
TEST(RawPtr, DestructionLeavesNullBehind) {
  Base target;
  alignas(raw_ptr<Base>) unsigned char storage[sizeof(raw_ptr<Base>)];
  auto* pointer = new (storage) raw_ptr<Base>(&target);
  pointer->~raw_ptr();

  const volatile unsigned char* remains = storage;
  for (size_t i = 0; i < sizeof storage; ++i)
    EXPECT_EQ(remains[i], 0) << "byte " << i;
}

struct Owner {
  raw_ptr<Base> first;
  raw_ptr<const Base> second;
};

TEST(RawPtr, DestructionOfTheEnclosingObjectLeavesNullBehind) {
  Base target;
  alignas(Owner) unsigned char storage[sizeof(Owner)];
  auto* owner = new (storage) Owner{&target, &target};
  owner->~Owner();

  const volatile unsigned char* remains = storage;
  for (size_t i = 0; i < sizeof storage; ++i)
    EXPECT_EQ(remains[i], 0) << "byte " << i;
}

}  // namespace
