// Lists the methods of a service, and finds one by the name that a user types.
//
// Everything is read from descriptors, so a method that is added to the
// contract needs no line here.
//
// Ownership: descriptors belong to their pool.
//
// Sequence: any thread.
//
// Failure: INVALID_ARGUMENT with a text for the user.

#ifndef TOOLS_RPCCTL_METHOD_TABLE_H_
#define TOOLS_RPCCTL_METHOD_TABLE_H_

#include <google/protobuf/descriptor.h>

#include <string>
#include <string_view>
#include <vector>

#include "absl/status/statusor.h"
#include "core/common/rpc/stream/method_kind.h"

namespace rpcctl {

// One line for each method, in the order of the contract: name, request,
// response and kind, or "stream" if KindOf() knows no kind.
std::string ListMethods(const google::protobuf::ServiceDescriptor& service);

// How the user of a program writes its commands, with $0 for a method.
struct CommandForms {
  const char* list;
  const char* call;
  const char* watch;
  const char* answer;
};

// The method of that name and kind. The name is the full one, "shop.Shop.Buy",
// or as much of its end as no other method has: "Shop.Buy" or "Buy". The error
// suggests a similar name, or names the methods that it could be, or says which
// command is the right one for the method, if any is.
absl::StatusOr<const google::protobuf::MethodDescriptor*> FindMethod(
    const std::vector<const google::protobuf::ServiceDescriptor*>& services,
    std::string_view name,
    torvane::MethodKind kind,
    const CommandForms& forms);

}  // namespace rpcctl

#endif  // TOOLS_RPCCTL_METHOD_TABLE_H_
