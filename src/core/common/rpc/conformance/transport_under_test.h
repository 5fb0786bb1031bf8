// A transport, described so that all tests of this folder can run over it: what
// a client can see, and what is left of it, must be the same over each.
//
// A new transport implements these classes and enters kTransports.
//
//   Host         serves a ScriptedService
//   Link         a client's connection to it
//   LinkCall     the client's end of a unary call
//   LinkStream   the client's end of a stream
//
// Ownership: calls and streams live at least as long as their link, which must
// go before its host.
//
// Sequence: the host's loop. What an operation brings about happens on later
// turns, but Break() may end calls and streams at once. None may be used from
// within a stream.
//
// Failure: LinkCall::failure says why a call has failed. What is sent on a
// stream that has ended or whose link is broken is dropped. No call or stream
// may begin on a broken link.

#ifndef CORE_COMMON_RPC_CONFORMANCE_TRANSPORT_UNDER_TEST_H_
#define CORE_COMMON_RPC_CONFORMANCE_TRANSPORT_UNDER_TEST_H_

#include <google/protobuf/descriptor.h>
#include <google/protobuf/message.h>

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "core/common/rpc/loop/loop.h"
#include "core/common/rpc/serving/limits.h"
#include "rpc/browser/browser_window.rpc.h"
#include "rpc/transport/stream_message.pb.h"

namespace rpc::conformance {

// Methods of the service are named by their indices.
inline const google::protobuf::MethodDescriptor* Method(int index) {
  return BrowserWindowRpc::descriptor()->method(index);
}

inline std::unique_ptr<google::protobuf::Message> NewMessage(
    const google::protobuf::Descriptor* type) {
  auto* const factory = google::protobuf::MessageFactory::generated_factory();
  return std::unique_ptr<google::protobuf::Message>(
      factory->GetPrototype(type)->New());
}

class LinkCall {
 public:
  explicit LinkCall(int method)
      : response(NewMessage(Method(method)->output_type())) {}
  virtual ~LinkCall() = default;

  // The end of the call, once it is over; no failure is success.
  bool over = false;
  std::string failure;
  const std::unique_ptr<google::protobuf::Message> response;
  std::function<void()> on_over = [] {};

 protected:
  void End(std::string with_failure) {
    failure = std::move(with_failure);
    over = true;
    on_over();
  }
};

class LinkStream {
 public:
  virtual ~LinkStream() = default;

  // Dropped once the client has ended the stream, or the link is broken.
  virtual void Send(const transport::StreamMessage& message) = 0;
  virtual void SendError(const transport::StreamMessage& message) = 0;
  virtual void End() = 0;

  // What the service has sent so far, and whether the stream is over.
  std::vector<transport::StreamMessage> received;
  bool over = false;
};

class Link {
 public:
  virtual ~Link() = default;

  virtual LinkCall& Call(int method,
                         const google::protobuf::Message& request) = 0;
  virtual LinkStream& Open(int method) = 0;

  // The connection closes without a goodbye.
  virtual void Break() = 0;
};

class Host {
 public:
  virtual ~Host() = default;

  virtual std::unique_ptr<Link> Connect() = 0;

  // Stops the host; its clients' connections close.
  virtual void Stop() = 0;

  // Only where the test can look into the host:

  // Whether there are streams that it has not destroyed.
  virtual bool HasStreams() const = 0;

  // Runs what is ready, and what becomes ready by that, on all sides. For a
  // transport with threads of its own: until all of them are idle.
  virtual void RunReady() { loop_.RunReady(); }

  loop::Loop& loop() { return loop_; }

 protected:
  loop::Loop loop_;
};

// Requests may be as long as responses, and take as long as a busy machine
// needs for each of their bytes.
inline serving::Limits PatientLimits() {
  serving::Limits limits;
  limits.max_client_frame_bytes = limits.max_frame_bytes;
  limits.frame_timeout = std::chrono::hours(1);
  return limits;
}

std::unique_ptr<Host> InProcessHost();
std::unique_ptr<Host> SocketPairHost();
// Two socket pairs, joined by a pump that copies one byte at a time.
std::unique_ptr<Host> ByteByByteHost();
// Another process behind a socket file.
std::unique_ptr<Host> ProcessHost();
#ifdef TORVANE_HAS_GRPC
// gRPC, to services of the same process and to those behind a gateway.
std::unique_ptr<Host> GrpcServicesHost();
std::unique_ptr<Host> GrpcGatewayHost();
#endif

struct TransportUnderTest {
  const char* name;
  std::unique_ptr<Host> (*make_host)();
  // Whether the test can look into the host: they share a process, and no
  // thread of the transport's own is under way unseen.
  bool is_open_to_test;
  // Whether what is sent on streams and as replies arrives in that order. gRPC
  // orders only what is sent on one stream.
  bool keeps_order = true;
};

inline constexpr TransportUnderTest kTransports[] = {
    {"InProcess", &InProcessHost, true},
    {"SocketPair", &SocketPairHost, true},
    {"ByteByByte", &ByteByByteHost, true},
    {"TwoProcesses", &ProcessHost, false},
#ifdef TORVANE_HAS_GRPC
    {"Grpc", &GrpcServicesHost, true, false},
    {"GrpcGateway", &GrpcGatewayHost, true, false},
#endif
};

}  // namespace rpc::conformance

#endif  // CORE_COMMON_RPC_CONFORMANCE_TRANSPORT_UNDER_TEST_H_
