// The transport's side of one open stream.
//
// Streams must reach the client that opened them without knowing how frames
// travel. A transport implements StreamChannel::Endpoint, wraps it into a
// StreamChannel and passes that to torvane::Service::OpenStream; from there the
// channel moves into the stream, which keeps it until it is destroyed:
//
//   auto stream = service->OpenStream(
//       method, torvane::StreamChannel(std::make_unique<MyEndpoint>(...)));
//
// Ownership: the channel owns its endpoint. A moved-from channel is empty and
// may only be destroyed.
//
// Sequence: a channel is used and destroyed on the sequence that its stream
// runs on. See service.h.
//
// Failure: Send() returns false when the client can no longer be reached.

#ifndef CORE_COMMON_RPC_STREAM_STREAM_CHANNEL_H_
#define CORE_COMMON_RPC_STREAM_STREAM_CHANNEL_H_

#include <memory>

namespace rpc::transport {
class StreamMessage;
}

namespace torvane {

class StreamChannel {
 public:
  // What a transport implements for each open stream.
  class Endpoint {
   public:
    Endpoint() = default;
    Endpoint(const Endpoint&) = delete;
    Endpoint& operator=(const Endpoint&) = delete;
    virtual ~Endpoint() = default;

    // Queues `frame` for the client, behind all earlier frames. `frame` stays
    // the caller's. Returns false, and drops the frame, when the stream can no
    // longer be written to. Must not destroy the stream before it returns.
    virtual bool Send(const rpc::transport::StreamMessage& frame) = 0;

    // The stream is over: nothing follows. May destroy the stream, and with it
    // this endpoint.
    virtual void Complete() = 0;
  };

  // `endpoint` must not be null.
  explicit StreamChannel(std::unique_ptr<Endpoint> endpoint);
  StreamChannel(StreamChannel&&) noexcept;
  StreamChannel& operator=(StreamChannel&&) = delete;
  ~StreamChannel();

  // Forward to the endpoint; see there. The channel must not be empty.
  bool Send(const rpc::transport::StreamMessage& frame) {
    return endpoint_->Send(frame);
  }
  void Complete() { endpoint_->Complete(); }

 private:
  std::unique_ptr<Endpoint> endpoint_;
};

}  // namespace torvane

#endif  // CORE_COMMON_RPC_STREAM_STREAM_CHANNEL_H_
