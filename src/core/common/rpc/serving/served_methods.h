// The methods that a server offers to its clients, under numbers that stand for
// them on the wire.
//
// Ownership: the server's. Services are the program's and outlive it.
//
// Sequence: the server's.
//
// Failure: two services of one name end the process.

#ifndef CORE_COMMON_RPC_SERVING_SERVED_METHODS_H_
#define CORE_COMMON_RPC_SERVING_SERVED_METHODS_H_

#include <google/protobuf/descriptor.h>

#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <vector>

#include "core/common/rpc/serving/subscribers.h"
#include "core/common/rpc/serving/window_message_reader.h"
#include "core/common/rpc/stream/method_kind.h"
#include "core/common/rpc/stream/service.h"

namespace rpc::serving {

struct ServedMethod {
  uint64_t id;
  torvane::Service* service;
  const google::protobuf::MethodDescriptor* descriptor;
  // Nothing for a stream of a kind that only its service knows.
  std::optional<torvane::MethodKind> kind;
  // Reads what passes on the method's streams; null for a unary method.
  std::unique_ptr<WindowMessageReader> reader;
  // Counts those of the streams that have the method's events in common, since
  // these have one registry; null where there are no events.
  std::shared_ptr<Subscribers> subscribers;

  bool streaming() const { return kind != torvane::MethodKind::kUnary; }
  bool asks_questions() const {
    return kind == torvane::MethodKind::kCallbackStream;
  }
};

class ServedMethods {
 public:
  // Gives an id to each method of `service`. Ids given before stay as they are.
  void Add(torvane::Service* service);

  // Null when no method has this id.
  const ServedMethod* Find(uint64_t id) const {
    return id < methods_.size() ? &methods_[id] : nullptr;
  }

  // All of them by id: those of one service stand together.
  const std::deque<ServedMethod>& all() const { return methods_; }

  // The services of those methods, in the order in which they were added.
  std::vector<const google::protobuf::ServiceDescriptor*> Services() const;

 private:
  std::shared_ptr<Subscribers> SubscribersTo(
      const google::protobuf::Descriptor* event) const;

  // They stay in place when more are added: open streams point to them.
  std::deque<ServedMethod> methods_;
};

}  // namespace rpc::serving

#endif  // CORE_COMMON_RPC_SERVING_SERVED_METHODS_H_
