// What a server does for its clients, told as it happens to whoever wants to
// see it: rpc::trace::TraceFile (trace/trace_file.h) writes it down for a
// viewer.
//
// A span is something that begins and ends: a connection, a call, a stream, a
// question that waits for its answer. What of a client has begun ends, too,
// though streams may end later than their connection. An event on a stream is
// a moment.
//
// Ownership: a Trace is the program's and outlives the server.
//
// Sequence: the server's.
//
// Failure: none that the server would hear of. A Trace neither waits for
// anything nor calls the server.

#ifndef CORE_COMMON_RPC_SERVING_TRACE_H_
#define CORE_COMMON_RPC_SERVING_TRACE_H_

#include <google/protobuf/descriptor.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "absl/status/status.h"

namespace rpc::serving {

enum class SpanKind { kConnection, kCall, kStream, kQuestion };

// What is the same at the beginning of a span and at its end. All of it
// together tells the span apart from others that are under way.
struct Span {
  SpanKind kind;
  uint64_t connection;
  // The client's name for a connection, the method's for all else.
  std::string_view name;
  // The client's id of a call or stream, the call id of a question; 0 for a
  // connection.
  uint64_t id;
};

class Trace {
 public:
  virtual ~Trace() = default;

  virtual void Begin(const Span& span) = 0;

  // `status` is what came of it. For a question that is OK once it is answered.
  virtual void End(const Span& span, const absl::Status& status) = 0;

  // An event of so many bytes has been sent on a stream.
  virtual void Event(const Span& stream, size_t bytes) = 0;
};

// The trace of one client. Costs a look at a pointer where there is none.
class ClientTrace {
 public:
  using Method = google::protobuf::MethodDescriptor;

  ClientTrace() = default;
  ClientTrace(Trace* trace, uint64_t connection)
      : trace_(trace), connection_(connection) {}

  void BeginConnection(const std::string& client) const {
    if (trace_ != nullptr) {
      trace_->Begin({SpanKind::kConnection, connection_, client, 0});
    }
  }
  void EndConnection(const std::string& client, const absl::Status& why) const {
    if (trace_ != nullptr) {
      trace_->End({SpanKind::kConnection, connection_, client, 0}, why);
    }
  }

  void Begin(SpanKind kind, const Method& method, uint64_t id) const {
    if (trace_ != nullptr) {
      trace_->Begin({kind, connection_, method.name(), id});
    }
  }
  void End(SpanKind kind,
           const Method& method,
           uint64_t id,
           const absl::Status& status) const {
    if (trace_ != nullptr) {
      trace_->End({kind, connection_, method.name(), id}, status);
    }
  }

  // What does not even begin. `method` is null where there is no such method.
  void Refuse(SpanKind kind,
              const Method* method,
              uint64_t id,
              const absl::Status& why) const {
    if (trace_ != nullptr) {
      const Span span = {kind, connection_,
                         method ? std::string_view(method->name())
                                : std::string_view("unknown method"),
                         id};
      trace_->Begin(span);
      trace_->End(span, why);
    }
  }

  void Event(const Method& method, uint64_t stream, size_t bytes) const {
    if (trace_ != nullptr) {
      trace_->Event({SpanKind::kStream, connection_, method.name(), stream},
                    bytes);
    }
  }

 private:
  Trace* trace_ = nullptr;
  uint64_t connection_ = 0;
};

}  // namespace rpc::serving

#endif  // CORE_COMMON_RPC_SERVING_TRACE_H_
