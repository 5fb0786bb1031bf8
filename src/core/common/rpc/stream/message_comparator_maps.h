// Puts the map entries of a serialised message in order without allocating.
//
// Maps serialise in the order of their hash tables, so equal maps may differ
// in their bytes. protobuf's deterministic mode sorts them, but in memory of
// its own. Here the entries are sorted in place, into the same order:
//
//   if (UseOfMaps(*message.GetDescriptor()) == MapUse::kSortable) {
//     ... serialise `message` to `data`, without the deterministic mode ...
//     if (SortMaps(message, data, size))
//       ... `data` holds the deterministic serialisation ...
//   }
//
// Used by MessageComparator only.
//
// Ownership: none. Sequence: any. Failure: SortMaps() returns false.

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

// Where a message of `type` may contain maps.
MapUse UseOfMaps(const google::protobuf::Descriptor& type);

// Sorts the entries of all maps within the `size` bytes at `data`, the
// serialisation of `message`. The message must have generated code and its type
// be kSortable. Returns false when extensions may contain maps; the bytes are
// then partly sorted and of no use.
bool SortMaps(const google::protobuf::Message& message,
              uint8_t* data,
              size_t size);

}  // namespace torvane

#endif  // CORE_COMMON_RPC_STREAM_MESSAGE_COMPARATOR_MAPS_H_
