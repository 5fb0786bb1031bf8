// The order of messages by content.
//
// Registries are keyed by messages that name something, a window for example.
// A key that has just come in must find the entry stored under an equal one, at
// another address:
//
//   std::map<const google::protobuf::Message*, Stream*, MessageComparator> map;
//   map.emplace(stored_key, stream);
//   map.find(received_key);  // Finds it if the contents are equal.
//
// Two messages are equivalent exactly when they are of the same type (the same
// full name) and their deterministic serialisations are equal byte for byte.
// So it matters whether a field is present, floating-point numbers are compared
// by their bits, unknown fields count, the order of map entries does not, and a
// dynamic message is equivalent to a generated one of equal content. Required
// fields may be missing. Which of two messages that are not equivalent comes
// first is arbitrary, but the same throughout the process.
//
// Keys are compared in every step of a look-up, so keys of up to 256 bytes are
// compared without allocating, except for what protobuf itself allocates:
// - the descriptors of a type, when keys of 12 bytes or more are first
//   compared;
// - for messages without generated code of their own (dynamic ones and those of
//   optimize_for = CODE_SIZE);
// - for maps of two or more entries, if extensions are set, or if the type of
//   the key allows for maps within map values, groups or message sets, or nests
//   types more than four deep;
// - for strings that are not the UTF-8 they should be, which it also logs.
//
// Ownership: none. Both pointers must be non-null and their targets must not
// change during the call. Nor may the content of a stored key change.
//
// Sequence: any, also on several at once with the same message.
//
// Failure: none. A key must not exceed the 2 GiB that protobuf can serialise.

#ifndef CORE_COMMON_RPC_STREAM_MESSAGE_COMPARATOR_H_
#define CORE_COMMON_RPC_STREAM_MESSAGE_COMPARATOR_H_

namespace google::protobuf {
class Message;
}

namespace torvane {

struct MessageComparator {
  // True when `a` comes before `b`.
  bool operator()(const google::protobuf::Message* a,
                  const google::protobuf::Message* b) const;
};

}  // namespace torvane

#endif  // CORE_COMMON_RPC_STREAM_MESSAGE_COMPARATOR_H_
