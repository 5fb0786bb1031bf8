// One client of a browser-window service with an open stream of questions and
// one of events, over whatever transport: what it can do, and what can be done
// to it.
//
// Sequence: everything runs on the loop, and only where Run() runs it. The
// operations may be called from the loop, but not from within a stream.

#ifndef CORE_COMMON_RPC_CONFORMANCE_TEARDOWN_WIRE_H_
#define CORE_COMMON_RPC_CONFORMANCE_TEARDOWN_WIRE_H_

#include <memory>
#include <utility>
#include <vector>

#include "core/common/rpc/transport/asio.h"
#include "rpc/transport/stream_message.pb.h"

namespace rpc::conformance {

class TeardownWire {
 public:
  virtual ~TeardownWire() = default;

  // The client sends on its streams, while it has them.
  virtual void SendOnQuestions(const transport::StreamMessage& frame) = 0;
  virtual void SendOnEvents(const transport::StreamMessage& frame) = 0;

  // The client ends both streams; or goes away without a word.
  virtual void EndStreams() = 0;
  virtual void Disconnect() = 0;

  // The host stops.
  virtual void StopHost() = 0;

  // Whether the host has destroyed the streams.
  virtual bool StreamsAreGone() const = 0;

  // Runs what is ready, and what becomes ready by that.
  void Run() {
    loop.restart();
    while (loop.poll() > 0) {
    }
  }

  // What has come on the stream of questions since the last time.
  std::vector<transport::StreamMessage> TakeQuestions() {
    return std::exchange(questions_, {});
  }

  asio::io_context loop{1};

 protected:
  std::vector<transport::StreamMessage> questions_;
};

std::unique_ptr<TeardownWire> InProcessTeardownWire();
std::unique_ptr<TeardownWire> SocketTeardownWire();

}  // namespace rpc::conformance

#endif  // CORE_COMMON_RPC_CONFORMANCE_TEARDOWN_WIRE_H_
