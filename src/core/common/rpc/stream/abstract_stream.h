// The base of every open stream.
//
// A transport owns the streams that a service opens for it and feeds them the
// client's frames without knowing their types. The life of a stream:
//
//   OpenStream ──> OnNext / OnError, any number ──> OnCompleted ──> destroyed
//
// Ownership: the transport owns the stream and destroys it through the virtual
// destructor, from within Complete() at the earliest. The stream owns its
// channel for life.
//
// Sequence: all calls, destruction included, come on the one sequence of the
// service that opened the stream. See service.h.
//
// Failure: no operation reports one.

#ifndef CORE_COMMON_RPC_STREAM_ABSTRACT_STREAM_H_
#define CORE_COMMON_RPC_STREAM_ABSTRACT_STREAM_H_

#include "core/common/rpc/stream/stream_channel.h"

namespace torvane {

class AbstractStream {
 public:
  // Takes over the channel to the client that opened the stream.
  explicit AbstractStream(StreamChannel channel);
  AbstractStream(const AbstractStream&) = delete;
  AbstractStream& operator=(const AbstractStream&) = delete;
  virtual ~AbstractStream();

  // One data frame of the client. The frame stays the caller's: the stream
  // reads it and neither keeps nor frees it.
  virtual void OnNext(rpc::transport::StreamMessage* message) = 0;

  // One error frame of the client. Ownership as for OnNext.
  virtual void OnError(rpc::transport::StreamMessage* message) = 0;

  // The client has ended the stream, or is gone. Called exactly once, last. The
  // stream drops its registrations and then calls Complete().
  virtual void OnCompleted() = 0;

 protected:
  // Writes one frame to the client. Returns false when it can no longer be
  // reached.
  bool Send(const rpc::transport::StreamMessage& frame) {
    return channel_.Send(frame);
  }

  // Tells the transport that the stream has ended. The transport may destroy
  // the stream within this call, so the caller must touch no member afterwards.
  void Complete() { channel_.Complete(); }

 private:
  StreamChannel channel_;
};

}  // namespace torvane

#endif  // CORE_COMMON_RPC_STREAM_ABSTRACT_STREAM_H_
