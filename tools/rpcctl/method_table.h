// Lists the methods of a service, and finds one by the name that a user types.
//
// Everything is read from descriptors, so a method that is added to the
// contract needs no line here.
//
// Ownership: descriptors belong to their pool.
//
// Sequence: any thread.
//
// Failure: INVALID_ARGUMENT or NOT_FOUND with a text for the user.

#ifndef TOOLS_RPCCTL_METHOD_TABLE_H_
#define TOOLS_RPCCTL_METHOD_TABLE_H_

#include <google/protobuf/descriptor.h>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "absl/status/statusor.h"
#include "core/common/rpc/stream/method_kind.h"

namespace rpcctl {

// What a kind is called, for people; "stream" if KindOf() knows no kind.
const char* KindName(std::optional<torvane::MethodKind> kind);

// One line for each method, in the order of the contract: name, request,
// response and kind, as KindName() says it.
std::string ListMethods(const google::protobuf::ServiceDescriptor& service);

// How the user of a program writes its commands, with $0 for a method.
struct CommandForms {
  const char* list;
  const char* call;
  const char* watch;
  const char* answer;
};

// The method of that name. The name is the full one, "shop.Shop.Buy",
// or as much of its end as no other method has: "Shop.Buy" or "Buy". The error
// suggests a similar name (NOT_FOUND), or names the methods that it could be.
absl::StatusOr<const google::protobuf::MethodDescriptor*> FindAnyMethod(
    const std::vector<const google::protobuf::ServiceDescriptor*>& services,
    std::string_view name,
    const CommandForms& forms);

// The same for a method of that kind. The error, INVALID_ARGUMENT, may say
// which command is the right one for the method, if any is.
absl::StatusOr<const google::protobuf::MethodDescriptor*> FindMethod(
    const std::vector<const google::protobuf::ServiceDescriptor*>& services,
    std::string_view name,
    torvane::MethodKind kind,
    const CommandForms& forms);

}  // namespace rpcctl

#endif  // TOOLS_RPCCTL_METHOD_TABLE_H_
