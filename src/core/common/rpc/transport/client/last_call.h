// The last call of a client that was valid. Most calls are of the same method
// and types as the one before: they need not be checked again, and their
// method's id is known.
//
// Ownership: the client's. Descriptors live as long as the process.
//
// Sequence: that of the client.

#ifndef CORE_COMMON_RPC_TRANSPORT_CLIENT_LAST_CALL_H_
#define CORE_COMMON_RPC_TRANSPORT_CLIENT_LAST_CALL_H_

#include <google/protobuf/descriptor.h>
#include <google/protobuf/message.h>

#include <cstdint>

#include "core/common/rpc/transport/client/virtual_table.h"

namespace rpc::transport {

class LastCall {
 public:
  // Whether a call like this one has been remembered. Each pointer may be null.
  bool IsLike(const google::protobuf::MethodDescriptor* method,
              const google::protobuf::Message* request,
              const google::protobuf::Message* response) const {
    return method == method_ && method != nullptr && request != nullptr &&
           response != nullptr && VirtualTableOf(*request) == request_table_ &&
           VirtualTableOf(*response) == response_table_;
  }

  // The id on the wire of the method that is remembered.
  uint64_t method_id() const { return method_id_; }

  // `method` can be called with these messages. They must be of generated
  // classes: two types that are made at run time may share one class.
  void Remember(const google::protobuf::MethodDescriptor* method,
                const google::protobuf::Message& request,
                const google::protobuf::Message& response,
                uint64_t method_id) {
    method_ = method;
    request_table_ = VirtualTableOf(request);
    response_table_ = VirtualTableOf(response);
    method_id_ = method_id;
  }

 private:
  const google::protobuf::MethodDescriptor* method_ = nullptr;
  // virtual_table.h
  const void* request_table_ = nullptr;
  const void* response_table_ = nullptr;
  uint64_t method_id_ = 0;
};

}  // namespace rpc::transport

#endif  // CORE_COMMON_RPC_TRANSPORT_CLIENT_LAST_CALL_H_
