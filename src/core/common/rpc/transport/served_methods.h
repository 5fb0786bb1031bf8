// The methods that a server offers, under the ids that its connections use.

#ifndef CORE_COMMON_RPC_TRANSPORT_SERVED_METHODS_H_
#define CORE_COMMON_RPC_TRANSPORT_SERVED_METHODS_H_

#include <google/protobuf/descriptor.h>

#include <cstdint>
#include <deque>

#include "core/common/rpc/stream/service.h"
#include "rpc/transport/frame.pb.h"

namespace rpc::transport {

// As far as the transport cares.
enum class MethodKind {
  kUnary,
  // A stream whose client sends rpc.EventSubscription.
  kEvents,
  // A stream of callback messages: its client sends subscriptions and answers.
  kQuestions,
  kOtherStream,
};

struct ServedMethod {
  torvane::Service* service;
  const google::protobuf::MethodDescriptor* descriptor;
  MethodKind kind;
  // Of a callback message; else null.
  const google::protobuf::FieldDescriptor* browser_id;
  const google::protobuf::FieldDescriptor* subscribe;
  const google::protobuf::FieldDescriptor* response;

  bool streaming() const { return kind != MethodKind::kUnary; }
};

class ServedMethods {
 public:
  // Gives an id to each method of `service`. Ids given before stay as they are.
  void Add(torvane::Service* service);

  // Null when no method has this id.
  const ServedMethod* Find(uint32_t id) const {
    return id < methods_.size() ? &methods_[id] : nullptr;
  }

  const google::protobuf::RepeatedPtrField<OfferedService>& offer() const {
    return offer_;
  }

 private:
  // By id. They stay in place when more are added: open streams point to them.
  std::deque<ServedMethod> methods_;
  google::protobuf::RepeatedPtrField<OfferedService> offer_;
};

}  // namespace rpc::transport

#endif  // CORE_COMMON_RPC_TRANSPORT_SERVED_METHODS_H_
