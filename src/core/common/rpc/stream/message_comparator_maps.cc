#include "core/common/rpc/stream/message_comparator_maps.h"

#include <google/protobuf/descriptor.h>
#include <google/protobuf/descriptor.pb.h>
#include <google/protobuf/io/coded_stream.h>
#include <google/protobuf/message.h>
#include <google/protobuf/wire_format_lite.h>

#include <algorithm>
#include <compare>
#include <string_view>

namespace torvane {

namespace {

using google::protobuf::Descriptor;
using google::protobuf::FieldDescriptor;
using google::protobuf::Message;
using google::protobuf::Reflection;
using google::protobuf::internal::WireFormatLite;
using google::protobuf::io::CodedInputStream;

// Limits the recursion, since types may contain each other in very many ways.
// Types nested deeper count as MapUse::kHidden.
constexpr int kMaxTypeDepth = 4;

// A type within the types that contain it.
struct TypeNesting {
  const Descriptor& type;
  const TypeNesting* outer;
};

MapUse UseOfMaps(const Descriptor& type, const TypeNesting* outer);

MapUse UseOfMaps(const FieldDescriptor& field, const TypeNesting& outer) {
  if (!field.message_type())
    return MapUse::kNone;
  if (!field.is_map() && field.type() != FieldDescriptor::TYPE_GROUP)
    return UseOfMaps(*field.message_type(), &outer);

  const Descriptor* opaque =
      field.is_map() ? field.message_type()->map_value()->message_type()
                     : field.message_type();
  if (opaque && UseOfMaps(*opaque, &outer) != MapUse::kNone)
    return MapUse::kHidden;
  return field.is_map() ? MapUse::kSortable : MapUse::kNone;
}

MapUse UseOfMaps(const Descriptor& type, const TypeNesting* outer) {
  int depth = 0;
  for (const TypeNesting* i = outer; i; i = i->outer, ++depth) {
    // A recursive type, whose fields an outer call is just looking at. Assume
    // that it has maps, which is safe.
    if (&i->type == &type)
      return MapUse::kSortable;
  }
  if (depth > kMaxTypeDepth || type.options().message_set_wire_format())
    return MapUse::kHidden;

  // Whether there are maps in extensions shows only in a message.
  MapUse use =
      type.extension_range_count() > 0 ? MapUse::kSortable : MapUse::kNone;
  const TypeNesting here{type, outer};
  for (int i = 0; i < type.field_count() && use != MapUse::kHidden; ++i)
    use = std::max(use, UseOfMaps(*type.field(i), here));
  return use;
}

// A map entry's key. Its < is the order of protobuf's deterministic mode. A
// numeric key leaves `text` empty, a string key `number` zero.
struct MapKey {
  uint64_t number = 0;
  std::string_view text;

  // clang-tidy 14 takes the default for a null pointer.
  // NOLINTNEXTLINE(modernize-use-nullptr)
  auto operator<=>(const MapKey&) const = default;
};

struct MapEntry {
  MapKey key;
  size_t size;  // With tag and length.
};

// Gives signed numbers the order of unsigned ones.
uint64_t Biased(int64_t number) {
  return static_cast<uint64_t>(number) ^ (uint64_t{1} << 63);
}

uint64_t ReadBits(CodedInputStream& in, FieldDescriptor::Type type) {
  uint64_t bits = 0;
  uint32_t low_bits = 0;
  switch (type) {
    case FieldDescriptor::TYPE_FIXED64:
    case FieldDescriptor::TYPE_SFIXED64:
      in.ReadLittleEndian64(&bits);
      return bits;
    case FieldDescriptor::TYPE_FIXED32:
    case FieldDescriptor::TYPE_SFIXED32:
      in.ReadLittleEndian32(&low_bits);
      return low_bits;
    default:
      in.ReadVarint64(&bits);
      return bits;
  }
}

uint64_t ReadNumber(CodedInputStream& in, FieldDescriptor::Type type) {
  const uint64_t bits = ReadBits(in, type);
  switch (type) {
    case FieldDescriptor::TYPE_INT32:
    case FieldDescriptor::TYPE_INT64:
    case FieldDescriptor::TYPE_SFIXED64:
      return Biased(static_cast<int64_t>(bits));
    case FieldDescriptor::TYPE_SFIXED32:
      return Biased(static_cast<int32_t>(bits));
    case FieldDescriptor::TYPE_SINT32:
    case FieldDescriptor::TYPE_SINT64:
      return Biased(WireFormatLite::ZigZagDecode64(bits));
    default:
      return bits;
  }
}

// Reads the entry that begins at `begin` and ends at or before `end`. Generated
// code writes an entry's key always, and first.
MapEntry ReadEntry(const uint8_t* begin,
                   const uint8_t* end,
                   FieldDescriptor::Type key_type) {
  CodedInputStream in(begin, static_cast<int>(end - begin));
  uint32_t size = 0;
  in.ReadTag();
  in.ReadVarint32(&size);
  MapEntry entry{.key = {}, .size = in.CurrentPosition() + size};
  in.ReadTag();
  if (key_type == FieldDescriptor::TYPE_STRING) {
    in.ReadVarint32(&size);
    entry.key.text = {
        reinterpret_cast<const char*>(begin) + in.CurrentPosition(), size};
  } else {
    entry.key.number = ReadNumber(in, key_type);
  }
  return entry;
}

// Moves the entry at [entry, end) to its place among the sorted ones at
// [sorted, entry).
void InsertEntry(uint8_t* sorted,
                 uint8_t* entry,
                 uint8_t* end,
                 const FieldDescriptor& map) {
  const FieldDescriptor::Type key_type = map.message_type()->map_key()->type();
  const MapKey key = ReadEntry(entry, end, key_type).key;
  uint8_t* place = sorted;
  while (place < entry) {
    const MapEntry other = ReadEntry(place, entry, key_type);
    if (key < other.key)
      break;
    place += other.size;
  }
  std::rotate(place, entry, end);
}

int CountOf(const Message& message, const FieldDescriptor& field) {
  const Reflection& reflection = *message.GetReflection();
  if (field.is_repeated())
    return reflection.FieldSize(message, &field);
  return reflection.HasField(message, &field) ? 1 : 0;
}

const Message& SubMessage(const Message& message,
                          const FieldDescriptor& field,
                          int index) {
  const Reflection& reflection = *message.GetReflection();
  return field.is_repeated()
             ? reflection.GetRepeatedMessage(message, &field, index)
             : reflection.GetMessage(message, &field);
}

// Walks a message and its serialisation side by side. The message tells which
// fields are known: unknown fields may have the same numbers.
class MapSorter {
 public:
  MapSorter(uint8_t* data, size_t size)
      : data_(data), in_(data, static_cast<int>(size)) {}

  // Sorts within `message`, whose serialisation reaches up to the limit.
  bool Sort(const Message& message);

 private:
  bool SortSubMessage(const Message& message);

  uint8_t* Position() { return data_ + in_.CurrentPosition(); }

  uint8_t* const data_;
  CodedInputStream in_;
};

bool MapSorter::Sort(const Message& message) {
  const Descriptor& type = *message.GetDescriptor();
  uint8_t* first_entry = nullptr;
  int last_number = 0;
  int index = 0;  // Among the fields of the same number in a row.
  for (;;) {
    uint8_t* const begin = Position();
    const uint32_t tag = in_.ReadTag();
    const int number = WireFormatLite::GetTagFieldNumber(tag);
    // Known fields come in ascending order, and unknown ones after all of them.
    if (number < last_number || tag == 0)
      return true;
    index = number == last_number ? index + 1 : 0;
    last_number = number;

    const FieldDescriptor* field = type.FindFieldByNumber(number);
    if (!field && type.IsExtensionNumber(number))
      return false;
    if (!field || field->type() != FieldDescriptor::TYPE_MESSAGE ||
        index >= CountOf(message, *field)) {
      WireFormatLite::SkipField(&in_, tag);
    } else if (field->is_map()) {
      WireFormatLite::SkipField(&in_, tag);
      if (index == 0)
        first_entry = begin;
      InsertEntry(first_entry, begin, Position(), *field);
    } else if (!SortSubMessage(SubMessage(message, *field, index))) {
      return false;
    }
  }
}

bool MapSorter::SortSubMessage(const Message& message) {
  uint32_t size = 0;
  in_.ReadVarint32(&size);
  const auto limit = in_.PushLimit(static_cast<int>(size));
  const bool sorted = Sort(message);
  in_.Skip(in_.BytesUntilLimit());
  in_.PopLimit(limit);
  return sorted;
}

}  // namespace

MapUse UseOfMaps(const Descriptor& type) {
  return UseOfMaps(type, nullptr);
}

bool SortMaps(const Message& message, uint8_t* data, size_t size) {
  return MapSorter(data, size).Sort(message);
}

}  // namespace torvane
