#include <google/protobuf/message.h>
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>

#include "browser_id.pb.h"
#include "comparator_proto2.pb.h"
#include "comparator_proto3.pb.h"
#include "core/common/rpc/stream/message_comparator_test_support.h"
#include "core/common/rpc/testing/allocation_counter.h"
#include "core/common/rpc/testing/window_id.h"

namespace torvane {
namespace {

using google::protobuf::Message;

size_t AllocationsOf(const std::function<void()>& action) {
  const size_t before = CountAllocations().allocations;
  action();
  return CountAllocations().allocations - before;
}

// Compares `key` with an equal one, and with `other`, as a look-up does.
void ExpectNoAllocation(const Message& key, const Message& other) {
  const std::unique_ptr<Message> equal(key.New());
  equal->ParsePartialFromString(key.SerializePartialAsString());
  ASSERT_LE(key.ByteSizeLong(), 256u);
  ASSERT_LE(other.ByteSizeLong(), 256u);
  // protobuf builds the descriptors of a type when they are first needed.
  other.GetDescriptor();

  bool equivalent = false, ordered = false;
  EXPECT_EQ(AllocationsOf([&] {
              equivalent = Equivalent(key, *equal);
              ordered = Ordered(key, other);
            }),
            0u)
      << key.ShortDebugString();
  EXPECT_TRUE(equivalent);
  EXPECT_TRUE(ordered);
}

TEST(MessageComparatorAllocation, CountsWhatIsAllocated) {
  std::unique_ptr<int> one;
  EXPECT_EQ(AllocationsOf([&] { one = std::make_unique<int>(1); }), 1u);
}

// Not even for descriptors, if nobody else has asked for them.
TEST(MessageComparatorAllocation,
     AllocatesNothingForTheFirstComparisonOfWindows) {
  const BrowserId id = WindowId(7);
  BrowserId other = WindowId(8);
  bool ordered = false;
  EXPECT_EQ(AllocationsOf([&] { ordered = Ordered(id, other); }), 0u);
  EXPECT_TRUE(ordered);
  other.set_value(7);
  EXPECT_EQ(AllocationsOf([&] { ordered = Ordered(id, other); }), 0u);
  EXPECT_FALSE(ordered);
}

TEST(MessageComparatorAllocation, AllocatesNothingForAWindow) {
  ExpectNoAllocation(WindowId(7), WindowId(8));
  ExpectNoAllocation(WindowId(7), BrowserId());
}

TEST(MessageComparatorAllocation, AllocatesNothingUpToTheVeryLimit) {
  test::Flat key, other;
  key.set_text(std::string(253, 'a'));
  other.set_text(std::string(253, 'b'));
  ASSERT_EQ(key.ByteSizeLong(), 256u);
  ExpectNoAllocation(key, other);

  test::Maps maps, other_maps;
  (*maps.mutable_int32s())[1] = 2;
  (*maps.mutable_int32s())[3] = 4;
  other_maps = maps;
  maps.add_words(std::string(240, 'a'));
  other_maps.add_words(std::string(240, 'b'));
  ASSERT_EQ(maps.ByteSizeLong(), 256u);
  ExpectNoAllocation(maps, other_maps);
}

TEST(MessageComparatorAllocation,
     AllocatesNothingForSubMessagesAndPackedFields) {
  test::Nested key, other;
  key.set_number(7);
  key.mutable_inner()->add_packed(1);
  key.mutable_inner()->mutable_inner()->set_number(1);
  key.add_inners()->add_packed(-1);
  key.add_packed(3);
  other = key;
  other.mutable_inners(0)->set_packed(0, -2);
  ExpectNoAllocation(key, other);
}

TEST(MessageComparatorAllocation, AllocatesNothingForUnknownFields) {
  BrowserId key, other;
  auto* unknown = key.GetReflection()->MutableUnknownFields(&key);
  unknown->AddVarint(9, 1);
  unknown->AddLengthDelimited(10, "a text of more than sixteen bytes");
  unknown->AddGroup(11)->AddFixed64(1, 1);
  ExpectNoAllocation(key, other);
}

TEST(MessageComparatorAllocation, AllocatesNothingForUnknownFieldsBesideMaps) {
  test::Maps key;
  for (const int i : {3, 1, 2})
    (*key.mutable_int32s())[i] = i;
  key.GetReflection()->MutableUnknownFields(&key)->AddVarint(99, 1);
  test::Maps other = key;
  other.mutable_int32s()->at(3) = 4;
  ExpectNoAllocation(key, other);
}

TEST(MessageComparatorAllocation, AllocatesNothingForMissingRequiredFields) {
  test::Mandatory key;
  key.set_text("a text of more than sixteen bytes");
  ExpectNoAllocation(key, test::Mandatory());
}

TEST(MessageComparatorAllocation, AllocatesNothingForMapsOfAnyKeyType) {
  test::Maps key;
  for (const int i : {3, 1, 2}) {
    (*key.mutable_strings())[std::string(1, 'a' + i)] = "v";
    (*key.mutable_int32s())[i] = i;
    (*key.mutable_int64s())[i] = i;
    (*key.mutable_uint32s())[i] = i;
    (*key.mutable_uint64s())[i] = i;
    (*key.mutable_sint32s())[i] = i;
    (*key.mutable_sint64s())[i] = i;
  }
  key.mutable_inner()->mutable_inner()->set_number(1);
  test::Maps other = key;
  other.mutable_strings()->at("b") = "w";
  ExpectNoAllocation(key, other);

  test::Maps fixed;
  for (const int i : {3, 1, 2}) {
    (*fixed.mutable_fixed32s())[i] = i;
    (*fixed.mutable_fixed64s())[i] = i;
    (*fixed.mutable_sfixed32s())[i] = i;
    (*fixed.mutable_sfixed64s())[i] = i;
    (*fixed.mutable_bools())[i == 2] = i;
    (*fixed.mutable_messages())[i].set_number(i);
  }
  other = fixed;
  other.mutable_messages()->at(3).set_number(4);
  ExpectNoAllocation(fixed, other);
}

TEST(MessageComparatorAllocation,
     AllocatesNothingForTheSmallestMapOfTwoEntries) {
  test::Maps key;
  (*key.mutable_int32s())[0] = 0;
  (*key.mutable_int32s())[1] = 0;
  ASSERT_EQ(key.ByteSizeLong(), 12u);
  test::Maps other = key;
  (*other.mutable_int32s())[1] = 1;
  ExpectNoAllocation(key, other);
}

TEST(MessageComparatorAllocation, AllocatesNothingForMapsWithinSubMessages) {
  test::MapsWithin key;
  for (const int i : {3, 1, 2}) {
    (*key.mutable_maps()->mutable_int32s())[i] = i;
    test::Maps& more = *key.add_more();
    (*more.mutable_strings())["b"] = "v";
    (*more.mutable_strings())["a"] = "v";
  }
  test::MapsWithin other = key;
  other.mutable_more(2)->mutable_strings()->at("b") = "w";
  ExpectNoAllocation(key, other);
}

TEST(MessageComparatorAllocation, AllocatesNothingForMapsFourTypesDeep) {
  test::Deep key;
  auto* c = key.mutable_a()->mutable_b()->mutable_c();
  for (const int i : {3, 1, 2})
    (*c->mutable_d()->mutable_map())[i] = i;
  ExpectNoAllocation(key, test::Deep());
}

TEST(MessageComparatorAllocation, AllocatesNothingForMapsInRecursiveTypes) {
  test::Tree key;
  test::Tree* child = key.add_children()->add_children();
  for (const int i : {3, 1, 2}) {
    (*key.mutable_leaves())[i] = i;
    (*child->mutable_leaves())[i] = i;
  }
  ExpectNoAllocation(key, test::Tree());
}

TEST(MessageComparatorAllocation,
     AllocatesNothingForGroupsAndExtensionsWithoutMaps) {
  test::Extensible key;
  key.set_number(1);
  (*key.mutable_colours())[1] = test::RED;
  key.mutable_pair()->mutable_second()->set_number(1);
  key.SetExtension(test::extra_number, 1);
  key.AddExtension(test::extra_words, "a text of more than sixteen bytes");
  (*key.MutableExtension(test::extra)->mutable_texts())[1] = "one";
  test::Extensible other;
  other.ParsePartialFromString(key.SerializePartialAsString());
  other.SetExtension(test::extra_number, 2);
  ExpectNoAllocation(key, other);
}

}  // namespace
}  // namespace torvane
