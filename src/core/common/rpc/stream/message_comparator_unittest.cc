#include "core/common/rpc/stream/message_comparator.h"

#include <google/protobuf/descriptor.pb.h>
#include <google/protobuf/dynamic_message.h>
#include <google/protobuf/unknown_field_set.h>
#include <gtest/gtest.h>

#include <limits>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <type_traits>

#include "browser_id.pb.h"
#include "comparator_proto2.pb.h"
#include "comparator_proto3.pb.h"
#include "core/common/rpc/stream/message_comparator_test_support.h"
#include "core/common/rpc/testing/window_id.h"

namespace torvane {
namespace {

using google::protobuf::DescriptorPool;
using google::protobuf::DynamicMessageFactory;
using google::protobuf::FileDescriptorProto;
using google::protobuf::Message;

static_assert(std::is_empty_v<MessageComparator>);
static_assert(std::is_trivially_default_constructible_v<MessageComparator>);

template <typename T>
T Parsed(const std::string& bytes) {
  T message;
  message.ParsePartialFromString(bytes);
  return message;
}

// --- Order and identity ------------------------------------------------------

TEST(MessageComparator, NoMessageComesBeforeItself) {
  const BrowserId id = WindowId(7);
  EXPECT_FALSE(Less(id, id));
}

TEST(MessageComparator, EqualContentInDistinctObjectsIsEquivalent) {
  EXPECT_TRUE(Equivalent(WindowId(7), WindowId(7)));
  EXPECT_TRUE(Ordered(WindowId(7), WindowId(8)));
}

TEST(MessageComparator, LookUpFindsTheEntryStoredUnderAnEqualKey) {
  const BrowserId stored = WindowId(7), other = WindowId(8);
  std::map<const Message*, int, MessageComparator> map = {{&stored, 1},
                                                          {&other, 2}};
  const BrowserId sought = WindowId(7), absent = WindowId(9);
  ASSERT_NE(map.find(&sought), map.end());
  EXPECT_EQ(map.find(&sought)->second, 1);
  EXPECT_EQ(map.find(&absent), map.end());
}

TEST(MessageComparator, DefaultInstanceIsEquivalentToAnEmptyMessage) {
  EXPECT_TRUE(Equivalent(BrowserId::default_instance(), BrowserId()));
  EXPECT_TRUE(Equivalent(BrowserId::default_instance(), WindowId(0)));
  EXPECT_TRUE(Ordered(BrowserId::default_instance(), WindowId(1)));
}

TEST(MessageComparator, TypesWithEqualBytesAreNotEquivalent) {
  for (const char* text : {"", "short", "a text that is somewhat longer"}) {
    test::Flat flat;
    flat.set_text(text);
    test::OtherFlat other;
    other.set_text(text);
    EXPECT_TRUE(Ordered(flat, other)) << text;
  }
}

// ThreadSanitizer sees whether the comparisons race.
TEST(MessageComparator, MessagesMayBeComparedOnSeveralThreadsAtOnce) {
  test::Maps a;
  (*a.mutable_int32s())[1] = 1;
  (*a.mutable_int32s())[2] = 2;
  a.mutable_inner()->add_packed(1);
  const test::Maps b = a;
  const auto compare = [&] {
    for (int i = 0; i < 1000; ++i)
      EXPECT_TRUE(Equivalent(a, b));
  };
  std::thread other(compare);
  compare();
  other.join();
}

// --- Sizes -------------------------------------------------------------------

// Buffers end at various sizes below a thousand bytes.
constexpr size_t kSizes = 1000;

// Neither the last byte of a key nor the first may be lost.
template <typename T, typename SetText>
void ExpectTextOfAnySizeCounts(SetText set_text) {
  for (size_t size = 1; size < kSizes; ++size) {
    std::string text(size, 'm');
    T key, first, last, longer;
    set_text(key, text);
    EXPECT_TRUE(Equivalent(key, T(key))) << size;
    text.back() = 'n';
    set_text(last, text);
    EXPECT_TRUE(Ordered(key, last)) << size;
    text.back() = 'm';
    text.front() = 'n';
    set_text(first, text);
    EXPECT_TRUE(Ordered(key, first)) << size;
    text.front() = 'm';
    set_text(longer, text + 'm');
    EXPECT_TRUE(Ordered(key, longer)) << size;
  }
}

TEST(MessageComparator, ContentOfAnySizeCountsInFlatMessages) {
  ExpectTextOfAnySizeCounts<test::Flat>(
      [](auto& message, const auto& text) { message.set_text(text); });
  ExpectTextOfAnySizeCounts<test::Flat>(
      [](auto& message, const auto& text) { message.add_words(text); });
  ExpectTextOfAnySizeCounts<test::Flat>([](auto& message, const auto& text) {
    message.GetReflection()->MutableUnknownFields(&message)->AddLengthDelimited(
        99, text);
  });
}

TEST(MessageComparator, ContentOfAnySizeCountsInMessagesWithMaps) {
  ExpectTextOfAnySizeCounts<test::Maps>([](auto& message, const auto& text) {
    (*message.mutable_strings())["k"] = text;
    (*message.mutable_strings())["l"] = "v";
  });
}

TEST(MessageComparator, ContentOfAnySizeCountsInSubMessages) {
  ExpectTextOfAnySizeCounts<test::Grouped>([](auto& message, const auto& text) {
    auto* item = message.add_item();
    item->GetReflection()->MutableUnknownFields(item)->AddLengthDelimited(99,
                                                                          text);
  });
}

// Keys of different sizes are compared by different means.
TEST(MessageComparator, OrderHoldsAcrossSizes) {
  test::Flat small, middle, large;
  small.set_text(std::string(10, 'z'));
  middle.set_text(std::string(250, 'm'));
  large.set_text(std::string(kSizes, 'a'));
  EXPECT_TRUE(Ordered(small, middle));
  EXPECT_EQ(Less(small, middle), Less(middle, large));
  EXPECT_EQ(Less(small, middle), Less(small, large));
}

// --- Fields ------------------------------------------------------------------

TEST(MessageComparator, PresenceOfAnOptionalFieldCounts) {
  test::Flat absent, present;
  present.set_present(0);
  EXPECT_TRUE(Ordered(absent, present));
  test::Mandatory preset, set_to_preset;
  set_to_preset.set_preset(preset.preset());
  EXPECT_TRUE(Ordered(preset, set_to_preset));
}

TEST(MessageComparator, MemberOfAOneofCounts) {
  test::Flat none, left, right;
  left.set_left(false);
  right.set_right("");
  EXPECT_TRUE(Ordered(none, left));
  EXPECT_TRUE(Ordered(left, right));
}

TEST(MessageComparator, MissingRequiredFieldsAreNoFailure) {
  test::Mandatory none, number, text;
  number.set_number(7);
  text.set_text("7");
  EXPECT_TRUE(Equivalent(none, test::Mandatory()));
  EXPECT_TRUE(Equivalent(number, test::Mandatory(number)));
  EXPECT_TRUE(Ordered(none, number));
  EXPECT_TRUE(Ordered(number, text));
}

TEST(MessageComparator, RepeatedFieldsCountInTheirOrder) {
  test::Flat ab, ba;
  ab.add_words("a");
  ab.add_words("b");
  ba.add_words("b");
  ba.add_words("a");
  EXPECT_TRUE(Ordered(ab, ba));
  test::Packed one, two;
  one.add_numbers(1);
  one.add_numbers(2);
  two.add_numbers(2);
  two.add_numbers(1);
  EXPECT_TRUE(Ordered(one, two));
  EXPECT_TRUE(Equivalent(one, test::Packed(one)));
}

TEST(MessageComparator, EmbeddedNullBytesCount) {
  test::Flat a, b;
  a.set_data(std::string("x\0a", 3));
  b.set_data(std::string("x\0b", 3));
  EXPECT_TRUE(Ordered(a, b));
}

TEST(MessageComparator, SubMessagesCountAtEveryDepth) {
  test::Nested a, b;
  a.mutable_inner()->mutable_inner()->set_number(1);
  b.mutable_inner()->mutable_inner()->set_number(1);
  EXPECT_TRUE(Equivalent(a, b));
  b.mutable_inner()->mutable_inner()->add_packed(-1);
  EXPECT_TRUE(Ordered(a, b));
}

TEST(MessageComparator, PresenceOfAnEmptySubMessageCounts) {
  test::Nested absent, present;
  present.mutable_inner();
  EXPECT_TRUE(Ordered(absent, present));
}

// What a sub-message was when it was last serialised must not matter.
TEST(MessageComparator, ContentMayChangeBetweenComparisons) {
  test::Nested a, b;
  a.add_inners()->set_number(1);
  b.add_inners()->set_number(1);
  EXPECT_TRUE(Equivalent(a, b));
  b.mutable_inners(0)->set_number(100'000);
  EXPECT_TRUE(Ordered(a, b));
  a.mutable_inners(0)->set_number(100'000);
  EXPECT_TRUE(Equivalent(a, b));
}

// --- Floating-point numbers --------------------------------------------------

TEST(MessageComparator, NanIsEquivalentToNanOfTheSameBits) {
  test::Flat a, b, other;
  a.set_real(std::numeric_limits<double>::quiet_NaN());
  b.set_real(std::numeric_limits<double>::quiet_NaN());
  other.set_real(-std::numeric_limits<double>::quiet_NaN());
  EXPECT_TRUE(Equivalent(a, b));
  EXPECT_TRUE(Ordered(a, other));
}

TEST(MessageComparator, MinusZeroIsNotZero) {
  test::Flat zero, minus_zero, small_minus_zero;
  minus_zero.set_real(-0.0);
  small_minus_zero.set_small_real(-0.0f);
  EXPECT_TRUE(Ordered(zero, minus_zero));
  EXPECT_TRUE(Ordered(zero, small_minus_zero));
  EXPECT_TRUE(Equivalent(minus_zero, test::Flat(minus_zero)));
}

// --- Unknown fields and extensions -------------------------------------------

TEST(MessageComparator, UnknownFieldsCount) {
  const BrowserId known = WindowId(7);
  BrowserId more = known, other = known;
  more.GetReflection()->MutableUnknownFields(&more)->AddVarint(9, 1);
  other.GetReflection()->MutableUnknownFields(&other)->AddVarint(9, 2);
  EXPECT_TRUE(Ordered(known, more));
  EXPECT_TRUE(Ordered(more, other));
  EXPECT_TRUE(Equivalent(more, BrowserId(more)));
}

TEST(MessageComparator, ExtensionsCount) {
  test::Extensible a, b;
  a.SetExtension(test::extra_number, 1);
  b.SetExtension(test::extra_number, 1);
  EXPECT_TRUE(Equivalent(a, b));
  EXPECT_TRUE(Ordered(a, test::Extensible()));
  b.SetExtension(test::extra_number, 2);
  EXPECT_TRUE(Ordered(a, b));
}

// A type without the field keeps it as an unknown one: same name, same bytes.
TEST(MessageComparator, FieldCountsTheSameWhetherKnownOrUnknown) {
  test::Flat number;
  number.set_number(7);
  FileDescriptorProto file;
  test::Flat::descriptor()->file()->CopyTo(&file);
  file.mutable_message_type(0)->clear_field();
  file.mutable_message_type(0)->clear_oneof_decl();
  DescriptorPool pool;
  DynamicMessageFactory factory;
  const Message* prototype =
      factory.GetPrototype(pool.BuildFile(file)->FindMessageTypeByName("Flat"));
  const std::unique_ptr<Message> unknown(prototype->New());
  ASSERT_TRUE(unknown->ParseFromString(DeterministicBytes(number)));
  EXPECT_TRUE(Equivalent(number, *unknown));
}

// --- Maps --------------------------------------------------------------------

TEST(MessageComparator, OrderOfInsertionIntoAMapDoesNotMatter) {
  for (const int count : {3, 300}) {
    test::Maps a, b;
    for (int i = 0; i < count; ++i) {
      (*a.mutable_int32s())[i] = 1;
      (*b.mutable_int32s())[count - 1 - i] = 1;
    }
    EXPECT_TRUE(Equivalent(a, b));
    (*b.mutable_int32s())[0] = 2;
    EXPECT_TRUE(Ordered(a, b));
  }
}

TEST(MessageComparator, DynamicMessagesAreEquivalentToGeneratedOnes) {
  test::Maps generated;
  generated.set_number(7);
  (*generated.mutable_strings())["k"] = "v";
  (*generated.mutable_strings())["l"] = "w";
  FileDescriptorProto file;
  test::Maps::descriptor()->file()->CopyTo(&file);
  DescriptorPool other_pool;
  DynamicMessageFactory factory, other_factory;
  const Message* prototypes[] = {
      factory.GetPrototype(test::Maps::descriptor()),
      other_factory.GetPrototype(
          other_pool.BuildFile(file)->FindMessageTypeByName("Maps"))};
  for (const Message* prototype : prototypes) {
    const std::unique_ptr<Message> dynamic(prototype->New());
    EXPECT_TRUE(Ordered(generated, *dynamic));
    ASSERT_TRUE(dynamic->ParseFromString(DeterministicBytes(generated)));
    EXPECT_TRUE(Equivalent(generated, *dynamic));
  }
}

TEST(MessageComparator, DynamicMessagesOfDifferentTypesAreNotEquivalent) {
  DynamicMessageFactory factory;
  EXPECT_TRUE(Ordered(*factory.GetPrototype(test::Flat::descriptor()),
                      *factory.GetPrototype(test::OtherFlat::descriptor())));
}

TEST(MessageComparator, MapsWithinSubMessagesAreComparedAsMaps) {
  test::MapsWithin a, b;
  for (const int key : {1, 2, 3, 4, 5, 6, 7, 8}) {
    (*a.mutable_maps()->mutable_int32s())[key] = 1;
    (*b.mutable_maps()->mutable_int32s())[9 - key] = 1;
  }
  for (const std::string key : {"a", "b", "c", "d", "e", "f", "g", "h"}) {
    (*a.add_more()->mutable_strings())["k"] = key;
    (*a.mutable_more(0)->mutable_strings())[key] = "v";
  }
  for (const auto& more : a.more())
    *b.add_more() = test::Maps(more);
  EXPECT_TRUE(Equivalent(a, b));
  (*b.mutable_more(7)->mutable_strings())["k"] = "other";
  EXPECT_TRUE(Ordered(a, b));
}

// Gives `message` the same entries, put into the map in either order.
template <typename T>
T WithEntries(bool forwards, void (*add)(T* message, int key)) {
  T message;
  for (int i = 1; i <= 8; ++i)
    add(&message, forwards ? i : 9 - i);
  return message;
}

template <typename T>
void ExpectEquivalentInAnyOrder(void (*add)(T* message, int key)) {
  EXPECT_TRUE(Equivalent(WithEntries(true, add), WithEntries(false, add)))
      << T::descriptor()->full_name();
}

TEST(MessageComparator, MapsThatAreHardToReachAreComparedAsMaps) {
  ExpectEquivalentInAnyOrder<test::MapsWithinMaps>([](auto* message, int key) {
    (*(*message->mutable_maps())[1].mutable_int32s())[key] = 1;
  });
  ExpectEquivalentInAnyOrder<test::Forest>([](auto* message, int key) {
    auto& wood = (*message->mutable_woods())[1];
    (*wood.mutable_forest()->mutable_woods())[key];
  });
  ExpectEquivalentInAnyOrder<test::Grouped>([](auto* message, int key) {
    if (message->item_size() == 0)
      message->add_item();
    (*message->mutable_item(0)->mutable_counts())[key] = 1;
  });
  ExpectEquivalentInAnyOrder<test::Extensible>([](auto* message, int key) {
    (*message->MutableExtension(test::extra)->mutable_texts())[key] = "";
  });
  ExpectEquivalentInAnyOrder<test::OpenValues>([](auto* message, int key) {
    auto& value = (*message->mutable_values())[1];
    (*value.MutableExtension(test::open_extra)->mutable_texts())[key] = "";
  });
  ExpectEquivalentInAnyOrder<test::Set>([](auto* message, int key) {
    auto* item = message->MutableExtension(test::SetItem::item);
    (*item->mutable_counts())[key] = 1;
  });
  ExpectEquivalentInAnyOrder<test::Deeper>([](auto* message, int key) {
    auto* c = message->mutable_deep()->mutable_a()->mutable_b()->mutable_c();
    (*c->mutable_d()->mutable_map())[key] = 1;
  });
}

TEST(MessageComparator, MapsInRecursiveTypesAreComparedAsMaps) {
  ExpectEquivalentInAnyOrder<test::Tree>([](auto* message, int key) {
    if (message->children_size() == 0)
      message->add_children()->add_children();
    auto* leaf = message->mutable_children(0)->mutable_children(0);
    (*leaf->mutable_leaves())[key] = 1;
    (*message->mutable_leaves())[key] = 1;
  });
}

// 0x12 0x04 begins an entry of field 2; 9 is no Colour.
constexpr char kKnownEntry[] = "\x12\x04\x08\x05\x10\x01";
constexpr char kUnknownEntry[] = "\x12\x04\x08\x03\x10\x09";

TEST(MessageComparator, UnknownEntriesOfAMapKeepTheirPlace) {
  const std::string known = kKnownEntry, unknown = kUnknownEntry;
  const auto both = Parsed<test::Colours>(unknown + known);
  ASSERT_EQ(both.colours_size(), 1);
  ASSERT_EQ(DeterministicBytes(both), known + unknown);

  test::Colours none;
  auto* fields = none.GetReflection()->MutableUnknownFields(&none);
  fields->AddLengthDelimited(2, unknown.substr(2));
  fields->AddLengthDelimited(2, known.substr(2));
  ASSERT_EQ(DeterministicBytes(none), unknown + known);
  EXPECT_TRUE(Ordered(both, none));
}

TEST(MessageComparator, UnknownFieldsBehindTheKnownOnesAreNotTakenForMaps) {
  test::Maps a, b;
  for (const int key : {1, 2, 3, 4, 5, 6, 7, 8}) {
    (*a.mutable_int32s())[key] = 1;
    (*b.mutable_int32s())[9 - key] = 1;
  }
  a.add_words("w");
  b.add_words("w");
  // Neither has anything of a map entry but the number.
  auto* unknown_a = a.GetReflection()->MutableUnknownFields(&a);
  unknown_a->AddVarint(3, 1);
  unknown_a->AddLengthDelimited(3, "later");
  unknown_a->AddGroup(2)->AddVarint(3, 1);
  auto* unknown_b = b.GetReflection()->MutableUnknownFields(&b);
  unknown_b->MergeFrom(*unknown_a);
  EXPECT_TRUE(Equivalent(a, b));
  unknown_b->AddLengthDelimited(3, "");
  EXPECT_TRUE(Ordered(a, b));
}

}  // namespace
}  // namespace torvane
