// How a method is served: called, or opened as one of the two kinds of stream.
//
// The kind is decided once, at generation time, by the shape of the method; the
// generated code goes by the method's index alone.

#ifndef CORE_COMMON_RPC_GENERATOR_METHOD_KIND_H_
#define CORE_COMMON_RPC_GENERATOR_METHOD_KIND_H_

#include <google/protobuf/descriptor.h>

#include <optional>
#include <string>

namespace torvane::generator {

enum class MethodKind {
  // No side streams.
  kUnary,
  // Both sides stream, the request is rpc.EventSubscription.
  kEventStream,
  // Both sides stream one and the same callback message: a `browser_id` of type
  // BrowserId, and a oneof `body` with a bool `subscribe` = 2 and a `response`
  // = 4, none of them deprecated.
  kCallbackStream,
};

// The kind of `method`, or nothing where no kind fits.
std::optional<MethodKind> KindOf(
    const google::protobuf::MethodDescriptor& method);

// What is wrong with a method that has no kind, for its author to read.
std::string WhyNoKind(const google::protobuf::MethodDescriptor& method);

}  // namespace torvane::generator

#endif  // CORE_COMMON_RPC_GENERATOR_METHOD_KIND_H_
