// What a service offers, as a person asks for it.
//
// Everything is read from descriptors, so that the tool knows whatever the
// contract has.
//
// Ownership: descriptors belong to Protocol Buffers and live as long as the
// process.
//
// Sequence: any thread.
//
// Failure: INVALID_ARGUMENT with a text for the user.

#ifndef TOOLS_WINDOWCTL_METHOD_TABLE_H_
#define TOOLS_WINDOWCTL_METHOD_TABLE_H_

#include <google/protobuf/descriptor.h>

#include <string>
#include <string_view>

#include "absl/status/statusor.h"

namespace windowctl {

enum class MethodKind { kUnary, kEventStream, kCallbackStream };

// A stream whose two messages are of one type carries questions and answers,
// any other one events.
MethodKind KindOf(const google::protobuf::MethodDescriptor& method);

// One line for each method, in the order of the contract: name, request,
// response and kind.
std::string ListMethods(const google::protobuf::ServiceDescriptor& service);

// The method of that name and kind. The error suggests a similar name, or says
// which of the tool's commands is the right one for the method.
absl::StatusOr<const google::protobuf::MethodDescriptor*> FindMethod(
    const google::protobuf::ServiceDescriptor& service,
    std::string_view name,
    MethodKind kind);

}  // namespace windowctl

#endif  // TOOLS_WINDOWCTL_METHOD_TABLE_H_
