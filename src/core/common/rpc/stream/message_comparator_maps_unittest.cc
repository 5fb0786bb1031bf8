#include "core/common/rpc/stream/message_comparator_maps.h"

#include <google/protobuf/map.h>
#include <google/protobuf/message.h>
#include <google/protobuf/unknown_field_set.h>
#include <gtest/gtest.h>

#include <limits>
#include <string>

#include "comparator_proto2.pb.h"
#include "comparator_proto3.pb.h"
#include "core/common/rpc/stream/message_comparator_test_support.h"

namespace torvane {
namespace {

using google::protobuf::Map;
using google::protobuf::Message;

// The bytes of `message` put in order, or a text that says they cannot be.
std::string Sorted(const Message& message) {
  std::string bytes = message.SerializePartialAsString();
  return SortMaps(message, reinterpret_cast<uint8_t*>(bytes.data()),
                  bytes.size())
             ? bytes
             : "not sortable";
}

template <typename Key>
void FillWithNumbers(Map<Key, int>* map) {
  using Limits = std::numeric_limits<Key>;
  for (const Key key :
       {Key{0}, Key{1}, Key{2}, Key{100}, Key{127}, Key{128}, Key{1000},
        Key{70'000}, static_cast<Key>(-1), static_cast<Key>(-2),
        static_cast<Key>(-1000), Limits::min(), Limits::max(),
        static_cast<Key>(Limits::max() / 2 + 1)}) {
    (*map)[key] = 1;
  }
}

// The map under test stands between other fields.
template <typename Fill>
void ExpectSorted(Fill fill) {
  test::Maps message;
  message.set_number(1);
  message.add_words("w");
  fill(&message);
  EXPECT_EQ(Sorted(message), DeterministicBytes(message));
}

TEST(MessageComparatorMaps, NumericKeysAreSortedByValue) {
  ExpectSorted([](auto* m) { FillWithNumbers(m->mutable_int32s()); });
  ExpectSorted([](auto* m) { FillWithNumbers(m->mutable_int64s()); });
  ExpectSorted([](auto* m) { FillWithNumbers(m->mutable_uint32s()); });
  ExpectSorted([](auto* m) { FillWithNumbers(m->mutable_uint64s()); });
  ExpectSorted([](auto* m) { FillWithNumbers(m->mutable_sint32s()); });
  ExpectSorted([](auto* m) { FillWithNumbers(m->mutable_sint64s()); });
  ExpectSorted([](auto* m) { FillWithNumbers(m->mutable_fixed32s()); });
  ExpectSorted([](auto* m) { FillWithNumbers(m->mutable_fixed64s()); });
  ExpectSorted([](auto* m) { FillWithNumbers(m->mutable_sfixed32s()); });
  ExpectSorted([](auto* m) { FillWithNumbers(m->mutable_sfixed64s()); });
}

TEST(MessageComparatorMaps, FalseComesBeforeTrue) {
  // Which of them the hash table has first is chance.
  for (int i = 0; i < 20; ++i) {
    ExpectSorted([](auto* m) {
      (*m->mutable_bools())[true] = 1;
      (*m->mutable_bools())[false] = 1;
    });
  }
}

TEST(MessageComparatorMaps, TextKeysAreSortedByTheirBytes) {
  ExpectSorted([](auto* m) {
    for (const char* key : {"", "a", "ab", "b", "B", "\xC3\xA9", "\x7F", "abc",
                            "a key of more than sixteen bytes"}) {
      (*m->mutable_strings())[key] = key;
    }
    (*m->mutable_strings())[std::string("a\0b", 3)] = "";
    (*m->mutable_strings())[std::string(200, 'a')] = std::string(200, 'v');
  });
}

TEST(MessageComparatorMaps, SeveralMapsAreSortedSeparately) {
  ExpectSorted([](auto* m) {
    FillWithNumbers(m->mutable_int32s());
    FillWithNumbers(m->mutable_int64s());
    for (const int key : {1, 2, 3, 4, 5, 6, 7, 8})
      (*m->mutable_messages())[key].set_text(std::string(key, 'x'));
  });
}

TEST(MessageComparatorMaps, EachSubMessageHasItsOwnMaps) {
  test::MapsWithin message;
  FillWithNumbers(message.mutable_maps()->mutable_sint32s());
  for (int i = 0; i < 3; ++i) {
    FillWithNumbers(message.add_more()->mutable_sint32s());
    message.mutable_more(i)->set_number(i);
  }
  message.set_number(1);
  EXPECT_EQ(Sorted(message), DeterministicBytes(message));
}

// Field 2 of Colours; 9 is no Colour, so the second entry stays unknown.
constexpr char kKnownEntry[] = "\x12\x04\x08\x05\x10\x01";
constexpr char kUnknownEntry[] = "\x12\x04\x08\x03\x10\x09";

TEST(MessageComparatorMaps, UnknownEntriesStayBehindTheKnownOnes) {
  test::Colours message;
  message.ParseFromString(std::string(kUnknownEntry) + kKnownEntry);
  ASSERT_EQ(message.colours_size(), 1);
  ASSERT_EQ(DeterministicBytes(message),
            std::string(kKnownEntry) + kUnknownEntry);
  EXPECT_EQ(Sorted(message), DeterministicBytes(message));
}

TEST(MessageComparatorMaps, UnknownFieldsAreNotTakenForMaps) {
  test::Maps message;
  FillWithNumbers(message.mutable_int32s());
  message.add_words("w");
  auto* unknown = message.GetReflection()->MutableUnknownFields(&message);
  for (const char* entry : {"\x08\x02\x10\x01", "\x08\x01\x10\x01", "", "?"})
    unknown->AddLengthDelimited(3, entry);
  unknown->AddVarint(3, 1);
  unknown->AddGroup(3)->AddVarint(3, 1);
  EXPECT_EQ(Sorted(message), DeterministicBytes(message));
}

TEST(MessageComparatorMaps, UnknownFieldsAreNotTakenForSubMessages) {
  test::MapsWithin message;
  auto* unknown = message.GetReflection()->MutableUnknownFields(&message);
  // A Maps with two entries in descending order.
  const char maps[] = "\x1A\x04\x08\x02\x10\x01\x1A\x04\x08\x01\x10\x01";
  unknown->AddLengthDelimited(1, maps);
  unknown->AddLengthDelimited(2, maps);
  ASSERT_FALSE(message.has_maps());
  EXPECT_EQ(Sorted(message), DeterministicBytes(message));

  // What comes behind the unknown fields of a sub-message is sorted.
  message.Clear();
  unknown = message.GetReflection()->MutableUnknownFields(&message);
  test::Maps* first = message.add_more();
  first->set_number(1);
  first->add_words("w");
  first->GetReflection()->MutableUnknownFields(first)->AddVarint(2, 1);
  FillWithNumbers(message.add_more()->mutable_int32s());
  EXPECT_EQ(Sorted(message), DeterministicBytes(message));
}

// A singular field is there once; what has its number behind it is unknown.
TEST(MessageComparatorMaps, UnknownFieldBehindASubMessageIsNotTakenForASecond) {
  test::MapsWithin message;
  for (const int key : {1, 2})
    (*message.mutable_maps()->mutable_int32s())[key] = 1;
  const char maps[] = "\x1A\x04\x08\x02\x10\x01\x1A\x04\x08\x01\x10\x01";
  message.GetReflection()->MutableUnknownFields(&message)->AddLengthDelimited(
      1, maps);
  EXPECT_EQ(Sorted(message), DeterministicBytes(message));
}

TEST(MessageComparatorMaps, ExtensionsPreventSorting) {
  test::Extensible message;
  (*message.mutable_colours())[1] = test::RED;
  EXPECT_EQ(Sorted(message), DeterministicBytes(message));
  message.MutableExtension(test::extra);
  EXPECT_EQ(Sorted(message), "not sortable");
  test::ExtensibleWithin outer;
  outer.mutable_extensible()->MutableExtension(test::extra);
  EXPECT_EQ(Sorted(outer), "not sortable");
}

TEST(MessageComparatorMaps, UseIsThatOfTheTypesWithin) {
  EXPECT_EQ(UseOfMaps(*test::Flat::descriptor()), MapUse::kNone);
  EXPECT_EQ(UseOfMaps(*test::Packed::descriptor()), MapUse::kNone);
  EXPECT_EQ(UseOfMaps(*test::Mandatory::descriptor()), MapUse::kNone);
  EXPECT_EQ(UseOfMaps(*test::Maps::descriptor()), MapUse::kSortable);
  EXPECT_EQ(UseOfMaps(*test::MapsWithin::descriptor()), MapUse::kSortable);
  EXPECT_EQ(UseOfMaps(*test::Extensible::descriptor()), MapUse::kSortable);
  EXPECT_EQ(UseOfMaps(*test::Open::descriptor()), MapUse::kSortable);
  EXPECT_EQ(UseOfMaps(*test::Tree::descriptor()), MapUse::kSortable);
  EXPECT_EQ(UseOfMaps(*test::Deep::descriptor()), MapUse::kSortable);
  EXPECT_EQ(UseOfMaps(*test::Deeper::descriptor()), MapUse::kHidden);
  EXPECT_EQ(UseOfMaps(*test::MapsWithinMaps::descriptor()), MapUse::kHidden);
  EXPECT_EQ(UseOfMaps(*test::Forest::descriptor()), MapUse::kHidden);
  EXPECT_EQ(UseOfMaps(*test::OpenValues::descriptor()), MapUse::kHidden);
  EXPECT_EQ(UseOfMaps(*test::Grouped::descriptor()), MapUse::kHidden);
  EXPECT_EQ(UseOfMaps(*test::Set::descriptor()), MapUse::kHidden);
}

}  // namespace
}  // namespace torvane
