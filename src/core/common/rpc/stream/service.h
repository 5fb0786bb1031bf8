// The base of every generated service class.
//
// It is the generic service interface of Protocol Buffers, which serves unary
// methods, plus OpenStream for streaming ones. A transport works on this class
// and on descriptors alone. For each method of GetDescriptor() it calls either
//
//   service->CallMethod(method, controller, request, response, done);   unary
//   stream = service->OpenStream(method, std::move(channel));       streaming
//
// with requests and responses made from the prototypes of the same method. A
// method is streaming when its descriptor says that either side streams.
//
// Ownership: the service belongs to whoever made it and must outlive every
// stream that it has opened.
//
// Sequence: OpenStream, every call into the opened streams and their
// destruction happen on one sequence, since all streams of a type share
// unguarded registries. Whether CallMethod may be entered concurrently is up to
// the subclass that implements the methods. The other operations may run on any
// thread.
//
// Failure: passing a streaming method to CallMethod, a unary one to OpenStream,
// or a method index that the service does not have ends the process.

#ifndef CORE_COMMON_RPC_STREAM_SERVICE_H_
#define CORE_COMMON_RPC_STREAM_SERVICE_H_

#include <google/protobuf/service.h>

#include <memory>

#include "core/common/rpc/stream/abstract_stream.h"
#include "core/common/rpc/stream/stream_channel.h"

namespace torvane {

class Service : public google::protobuf::Service {
 public:
  Service() = default;
  Service(const Service&) = delete;
  Service& operator=(const Service&) = delete;
  ~Service() override;

  // GetDescriptor, CallMethod, GetRequestPrototype and GetResponsePrototype are
  // inherited.

  // Creates the stream of a streaming method of this service, bound to
  // `channel`. The caller owns the stream.
  virtual std::unique_ptr<AbstractStream> OpenStream(
      const google::protobuf::MethodDescriptor* method,
      StreamChannel channel) = 0;
};

}  // namespace torvane

#endif  // CORE_COMMON_RPC_STREAM_SERVICE_H_
