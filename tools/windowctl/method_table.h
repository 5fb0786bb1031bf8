// Lists the methods of a service, and finds one by the name that a user types.
//
// Everything is read from descriptors, so a method that is added to the
// contract needs no line here.
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
#include "core/common/rpc/stream/method_kind.h"

namespace windowctl {

// One line for each method, in the order of the contract: name, request,
// response and kind, or "stream" if KindOf() knows no kind.
std::string ListMethods(const google::protobuf::ServiceDescriptor& service);

// The method of that name and kind. The error suggests a similar name, or says
// which of the tool's commands is the right one for the method, if any is.
absl::StatusOr<const google::protobuf::MethodDescriptor*> FindMethod(
    const google::protobuf::ServiceDescriptor& service,
    std::string_view name,
    torvane::MethodKind kind);

}  // namespace windowctl

#endif  // TOOLS_WINDOWCTL_METHOD_TABLE_H_
