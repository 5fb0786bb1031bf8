// What the tests compare MessageComparator with.

#ifndef CORE_COMMON_RPC_STREAM_MESSAGE_COMPARATOR_TEST_SUPPORT_H_
#define CORE_COMMON_RPC_STREAM_MESSAGE_COMPARATOR_TEST_SUPPORT_H_

#include <google/protobuf/descriptor.h>
#include <google/protobuf/io/coded_stream.h>
#include <google/protobuf/io/zero_copy_stream_impl_lite.h>
#include <google/protobuf/message.h>

#include <string>

#include "core/common/rpc/stream/message_comparator.h"

namespace torvane {

inline std::string DeterministicBytes(
    const google::protobuf::Message& message) {
  std::string bytes;
  {
    google::protobuf::io::StringOutputStream stream(&bytes);
    google::protobuf::io::CodedOutputStream out(&stream);
    out.SetSerializationDeterministic(true);
    message.SerializePartialToCodedStream(&out);
  }
  return bytes;
}

// The definition of equivalence.
inline bool SameContent(const google::protobuf::Message& a,
                        const google::protobuf::Message& b) {
  return a.GetDescriptor()->full_name() == b.GetDescriptor()->full_name() &&
         DeterministicBytes(a) == DeterministicBytes(b);
}

inline bool Less(const google::protobuf::Message& a,
                 const google::protobuf::Message& b) {
  return MessageComparator()(&a, &b);
}

inline bool Equivalent(const google::protobuf::Message& a,
                       const google::protobuf::Message& b) {
  return !Less(a, b) && !Less(b, a);
}

// Exactly one comes first.
inline bool Ordered(const google::protobuf::Message& a,
                    const google::protobuf::Message& b) {
  return Less(a, b) != Less(b, a);
}

}  // namespace torvane

#endif  // CORE_COMMON_RPC_STREAM_MESSAGE_COMPARATOR_TEST_SUPPORT_H_
