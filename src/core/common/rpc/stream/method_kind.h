// How a method is served: called, or opened as one of the two kinds of stream.
//
// The descriptor decides: which sides stream, and which messages they send.
// Generator, transports and tools all use this function. Generated code does
// not need it: it dispatches by the method's index.
//
// Ownership: none. Sequence: any. Failure: nullopt.

#ifndef CORE_COMMON_RPC_STREAM_METHOD_KIND_H_
#define CORE_COMMON_RPC_STREAM_METHOD_KIND_H_

#include <google/protobuf/descriptor.h>

#include <optional>

namespace torvane {

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

// The kind of `method`; nullopt if it streams in a way that fits no kind. Only
// a hand-written service can serve such a method.
std::optional<MethodKind> KindOf(
    const google::protobuf::MethodDescriptor& method);

}  // namespace torvane

#endif  // CORE_COMMON_RPC_STREAM_METHOD_KIND_H_
