// Reads what a message on a stream says about a window, as far as limits and
// reports need to know it:
//
//   events     rpc.EventSubscription: subscribe_to, unsubscribe_from
//   questions  the callback message: subscribe, response, and browser_id
//
// The stream will read the same bytes again, and the two readings must agree: a
// client could otherwise subscribe without being counted. So a client's message
// is parsed as the stream parses it. Only the plain form that every protobuf
// writer produces, window first and then one other field, is recognised without
// a parse, since it can be read in one way only.
//
// Ownership: ServedMethods'. The service outlives it.
//
// Sequence: the server's. Keeps a message that it parses into, so that its
// memory is allocated once.
//
// Failure: what does not parse counts as far as it parsed, as the stream takes
// it.

#ifndef CORE_COMMON_RPC_SERVING_WINDOW_MESSAGE_READER_H_
#define CORE_COMMON_RPC_SERVING_WINDOW_MESSAGE_READER_H_

#include <google/protobuf/descriptor.h>
#include <google/protobuf/message.h>

#include <memory>
#include <string>
#include <string_view>

#include "core/common/rpc/stream/service.h"
#include "rpc/transport/stream_message.pb.h"

namespace rpc::serving {

struct WindowMessage {
  enum class Kind { kOther, kSubscribe, kUnsubscribe, kResponse };

  bool subscribes_or_unsubscribes() const {
    return kind == Kind::kSubscribe || kind == Kind::kUnsubscribe;
  }

  Kind kind = Kind::kOther;
  // The window's BrowserId, serialised: two are the same for the streams'
  // registries when all their bytes are.
  std::string window;
  // Whether a message that subscribes or unsubscribes has fields, at its top or
  // in its BrowserId, that the contract does not know.
  bool has_unknown_fields = false;
};

class WindowMessageReader {
 public:
  // For the streams of `method`, which is one of `service`.
  WindowMessageReader(const torvane::Service& service,
                      const google::protobuf::MethodDescriptor& method);
  WindowMessageReader(const WindowMessageReader&) = delete;
  WindowMessageReader& operator=(const WindowMessageReader&) = delete;
  ~WindowMessageReader();

  // What a client has sent.
  WindowMessage ReadFromClient(const transport::StreamMessage& message);

  // The payload with which a client unsubscribes from `window`, as in
  // WindowMessage. Only for streams of events and of questions.
  std::string UnsubscriptionFrom(const std::string& window) const;

  // The window of a question of ours, which is known to be well formed. Only
  // for streams of questions.
  std::string WindowOfQuestion(const transport::StreamMessage& question);

 private:
  bool ReadPlain(std::string_view payload, WindowMessage* said) const;
  WindowMessage ReadSubscription() const;
  WindowMessage ReadCallback() const;
  WindowMessage SaidOf(WindowMessage::Kind kind,
                       const google::protobuf::Message& window) const;

  // What a client's message is parsed into. Null for a stream that is of
  // neither kind.
  std::unique_ptr<google::protobuf::Message> scratch_;

  // Of a callback message; else null.
  const google::protobuf::FieldDescriptor* browser_id_ = nullptr;
  const google::protobuf::FieldDescriptor* subscribe_ = nullptr;
  const google::protobuf::FieldDescriptor* response_ = nullptr;
};

}  // namespace rpc::serving

#endif  // CORE_COMMON_RPC_SERVING_WINDOW_MESSAGE_READER_H_
