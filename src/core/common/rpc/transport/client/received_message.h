// A message that has arrived for one or several streams of a client. It is
// parsed once, and the streams share the result.
//
// Ownership: refers to a frame, and lives only while that is handled.
//
// Sequence: that of the client.
//
// Failure: As() returns null when the payload does not parse.

#ifndef CORE_COMMON_RPC_TRANSPORT_CLIENT_RECEIVED_MESSAGE_H_
#define CORE_COMMON_RPC_TRANSPORT_CLIENT_RECEIVED_MESSAGE_H_

#include <google/protobuf/message_lite.h>

#include <memory>
#include <utility>

#include "rpc/transport/stream_message.pb.h"

namespace rpc::transport {

class ReceivedMessage {
 public:
  explicit ReceivedMessage(const StreamMessage& frame) : frame_(frame) {}
  ReceivedMessage(const ReceivedMessage&) = delete;
  ReceivedMessage& operator=(const ReceivedMessage&) = delete;

  // For callbacks that take the frame's message unparsed.
  operator const StreamMessage&() const { return frame_; }  // NOLINT

  // The payload as a T, parsed when the first stream asks; null if it does not
  // parse.
  template <typename T>
  const T* As() const {
    if (prototype_ != &T::default_instance()) {
      prototype_ = &T::default_instance();
      auto parsed = std::make_unique<T>();
      const bool parses = parsed->ParseFromString(frame_.payload());
      parsed_ = parses ? std::move(parsed) : nullptr;
    }
    return static_cast<const T*>(parsed_.get());
  }

 private:
  const StreamMessage& frame_;
  // Tells the type that `parsed_` was parsed as; it is null if that failed. The
  // streams of one message nearly always want the same type, so only the last
  // one is kept.
  mutable const google::protobuf::MessageLite* prototype_ = nullptr;
  mutable std::unique_ptr<google::protobuf::MessageLite> parsed_;
};

}  // namespace rpc::transport

#endif  // CORE_COMMON_RPC_TRANSPORT_CLIENT_RECEIVED_MESSAGE_H_
