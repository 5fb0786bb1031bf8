// A message that has arrived for one or several streams of a client, which
// share what it is parsed into.
//
// Ownership: refers to a frame, and lives for as long as that is handled.
//
// Sequence: the loop's.

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

  // For whoever reads the frame itself.
  operator const StreamMessage&() const { return frame_; }  // NOLINT

  // The payload as a T, parsed for the first stream that asks. Null where it
  // does not parse.
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
  // Of which type `parsed_` is. Streams of one message are nearly always of one
  // method, so the last type is enough.
  mutable const google::protobuf::MessageLite* prototype_ = nullptr;
  mutable std::unique_ptr<google::protobuf::MessageLite> parsed_;
};

}  // namespace rpc::transport

#endif  // CORE_COMMON_RPC_TRANSPORT_CLIENT_RECEIVED_MESSAGE_H_
