// A service that passes everything on to another one and logs each unary call.
//
//   window_host::CallLogger logger(*service);
//   server.AddService(&logger);
//
// For each call that completes it writes one INFO record: who called, what,
// with which request, how it ended and how long that took. The time of a Close
// includes the wait for a client's answer.
//
// Ownership: the service behind it is the caller's and must outlive it.
//
// Sequence: any; a record is written on the thread that completes the call.
//
// Failure: none of its own. The controller must be a CallContext.

#ifndef EXAMPLES_WINDOW_HOST_APP_CALL_LOGGER_H_
#define EXAMPLES_WINDOW_HOST_APP_CALL_LOGGER_H_

#include <memory>

#include "core/common/rpc/stream/service.h"

namespace window_host {

class CallLogger final : public torvane::Service {
 public:
  explicit CallLogger(torvane::Service& service) : service_(service) {}

  // torvane::Service:
  const google::protobuf::ServiceDescriptor* GetDescriptor() override;
  void CallMethod(const google::protobuf::MethodDescriptor* method,
                  google::protobuf::RpcController* controller,
                  const google::protobuf::Message* request,
                  google::protobuf::Message* response,
                  google::protobuf::Closure* done) override;
  const google::protobuf::Message& GetRequestPrototype(
      const google::protobuf::MethodDescriptor* method) const override;
  const google::protobuf::Message& GetResponsePrototype(
      const google::protobuf::MethodDescriptor* method) const override;
  std::unique_ptr<torvane::AbstractStream> OpenStream(
      const google::protobuf::MethodDescriptor* method,
      torvane::StreamChannel channel) override;

 private:
  torvane::Service& service_;
};

}  // namespace window_host

#endif  // EXAMPLES_WINDOW_HOST_APP_CALL_LOGGER_H_
