// Puts the map entries of a serialised message in order without allocating.
//
// Maps serialise in the order of their hash tables, so equal maps may differ
// in their bytes. protobuf's deterministic mode sorts them, but in memory of
// its own. Here the entries are sorted where they stand, into the very same
// order:
//
//   if (UseOfMaps(*message.GetDescriptor()) == MapUse::kSortable) {
//     ... serialise `message` to `data`, without the deterministic mode ...
//     if (SortMaps(message, data, size))
//       ... `data` holds the deterministic serialisation ...
//   }
//
// A part of MessageComparator. Everything is stateless and may run anywhere.

#ifndef CORE_COMMON_RPC_STREAM_MESSAGE_COMPARATOR_MAPS_H_
#define CORE_COMMON_RPC_STREAM_MESSAGE_COMPARATOR_MAPS_H_

#include <cstddef>
#include <cstdint>

namespace google::protobuf {
class Descriptor;
class Message;
}  // namespace google::protobuf

namespace torvane {

enum class MapUse {
  kNone,      // Nowhere.
  kSortable,  // Where SortMaps reaches them.
  kHidden,    // Also where it does not: within map values, groups, message sets
              // or very deep.
};

// Where messages of `type` may hold maps.
MapUse UseOfMaps(const google::protobuf::Descriptor& type);

// Sorts the entries of all maps within the `size` bytes at `data`, which
// `message`, of generated code and a sortable type, has serialised to. Returns
// false, with the bytes in no particular order, when extensions may hide maps.
bool SortMaps(const google::protobuf::Message& message,
              uint8_t* data,
              size_t size);

}  // namespace torvane

#endif  // CORE_COMMON_RPC_STREAM_MESSAGE_COMPARATOR_MAPS_H_
