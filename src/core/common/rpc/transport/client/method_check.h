// Checks that a method is what a call or a stream takes it for, before anything
// is sent. A wrong one is a mistake of this program: the server could only
// guess what it was meant to be.
//
// Types are compared by their full names, so that a contract that was loaded at
// run time may stand beside the one that was compiled in.
//
// Ownership: descriptors live as long as the process.
//
// Sequence: that of the client.
//
// Failure: INVALID_ARGUMENT with a text that names the method, and says what it
// is and what it was used as.

#ifndef CORE_COMMON_RPC_TRANSPORT_CLIENT_METHOD_CHECK_H_
#define CORE_COMMON_RPC_TRANSPORT_CLIENT_METHOD_CHECK_H_

#include <google/protobuf/descriptor.h>
#include <google/protobuf/message.h>

#include <string>

#include "absl/status/status.h"
#include "absl/status/statusor.h"

namespace rpc::transport {

// For texts: the method's full name, or that there is none.
std::string NameOf(const google::protobuf::MethodDescriptor* method);

// Whether `method` can be called with these messages.
absl::Status CheckCall(const google::protobuf::MethodDescriptor* method,
                       const google::protobuf::Message* request,
                       const google::protobuf::Message* response);

// Whether the type of `message` is the only one of its class: so it is for
// generated classes, and not for those that are made at run time.
bool HasClassOfItsOwn(const google::protobuf::Message& message);

// `method` itself, if it is an event stream whose events are of the type
// `event`, or a callback stream whose messages are of the type `message`.
absl::StatusOr<const google::protobuf::MethodDescriptor*> CheckEventMethod(
    const google::protobuf::MethodDescriptor* method,
    const google::protobuf::Descriptor& event);
absl::StatusOr<const google::protobuf::MethodDescriptor*> CheckCallbackMethod(
    const google::protobuf::MethodDescriptor* method,
    const google::protobuf::Descriptor& message);

}  // namespace rpc::transport

#endif  // CORE_COMMON_RPC_TRANSPORT_CLIENT_METHOD_CHECK_H_
