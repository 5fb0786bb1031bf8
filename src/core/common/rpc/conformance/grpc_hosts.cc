// gRPC: services of the same process, and the gateway in front of a socket. The
// client is gRPC's own.
//
// gRPC has threads of its own, and orders nothing across calls and streams.
// Here client and server share a loop, and what goes over streams is counted on
// both sides: so a call can wait until what was sent before has arrived, and a
// test until nothing is on its way.

#include <cstddef>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "absl/log/absl_check.h"
#include "absl/strings/str_cat.h"
#include "core/common/rpc/conformance/scripted_service.h"
#include "core/common/rpc/conformance/transport_under_test.h"
#include "core/common/rpc/grpc/backend.h"
#include "core/common/rpc/grpc/front.h"
#include "core/common/rpc/grpc/front/question_fields.h"
#include "core/common/rpc/grpc/services/service_backend.h"
#include "core/common/rpc/grpc/testing/test_client.h"
#include "core/common/rpc/stream/method_kind.h"
#include "core/common/rpc/testing/private_folder.h"
#include "core/common/rpc/transport/server.h"
#include "tools/rpc_gateway/host_backend.h"

namespace rpc::conformance {
namespace {

using grpc::Backend;
using grpc::BackendClient;
using grpc::BackendMethod;
using grpc::BackendSink;

// What has gone over streams.
struct Traffic {
  bool has_all_arrived() const { return sent == arrived; }

  // Of clients, the opening included, and how much of it the backend has got.
  size_t sent = 0;
  size_t arrived = 0;
  // Of the backend, and how much of it the clients have got.
  size_t sent_back = 0;
  size_t arrived_back = 0;
  // Streams that a client has not ended or seen the end of, and those that the
  // backend has not.
  size_t open_at_clients = 0;
  size_t open_at_backend = 0;
  // A stream has ended: what was on its way there is lost.
  bool has_lost = false;
};

// Between the front and a backend: counts.
class CountedClient final : public BackendClient, private BackendSink {
 public:
  CountedClient(Backend& backend,
                const std::string& name,
                BackendSink& sink,
                Traffic& traffic)
      : sink_(sink), traffic_(traffic), client_(backend.Connect(name, *this)) {}
  ~CountedClient() override { traffic_.open_at_backend -= open_.size(); }

  // BackendClient:
  void Find(std::string_view service,
            std::string_view method,
            FoundCallback on_found) override {
    client_->Find(service, method, std::move(on_found));
  }
  void Call(uint64_t id,
            const BackendMethod& method,
            std::chrono::milliseconds timeout,
            const std::string& request) override {
    client_->Call(id, method, timeout, request);
  }
  void Cancel(uint64_t id) override { client_->Cancel(id); }
  void Open(uint64_t id, const BackendMethod& method) override {
    ++traffic_.arrived;
    open_.insert(id);
    ++traffic_.open_at_backend;
    client_->Open(id, method);
  }
  absl::Status Send(uint64_t id, transport::StreamMessage& message) override {
    ++traffic_.arrived;
    return client_->Send(id, message);
  }
  absl::Status Decline(uint64_t id,
                       transport::StreamMessage& message) override {
    ++traffic_.arrived;
    return client_->Decline(id, message);
  }
  void End(uint64_t id) override {
    NoteEnd(id);
    client_->End(id);
  }

 private:
  // BackendSink:
  void OnReply(uint64_t id, std::string_view response) override {
    sink_.OnReply(id, response);
  }
  void OnFailure(uint64_t id, const absl::Status& status) override {
    sink_.OnFailure(id, status);
  }
  absl::Status OnMessage(uint64_t id,
                         const transport::StreamMessage& message) override {
    ++traffic_.sent_back;
    return sink_.OnMessage(id, message);
  }
  void OnEnd(uint64_t id, const absl::Status& status) override {
    NoteEnd(id);
    sink_.OnEnd(id, status);
  }
  size_t queued_bytes() const override { return sink_.queued_bytes(); }

  void NoteEnd(uint64_t id) { traffic_.open_at_backend -= open_.erase(id); }

  BackendSink& sink_;
  Traffic& traffic_;
  std::set<uint64_t> open_;
  const std::unique_ptr<BackendClient> client_;
};

class CountedBackend final : public Backend {
 public:
  CountedBackend(Backend& backend, Traffic& traffic)
      : backend_(backend), traffic_(traffic) {}

  std::unique_ptr<BackendClient> Connect(const std::string& name,
                                         BackendSink& sink) override {
    return std::make_unique<CountedClient>(backend_, name, sink, traffic_);
  }

 private:
  Backend& backend_;
  Traffic& traffic_;
};

std::string PathOf(int method) {
  return absl::StrCat("/", Method(method)->service()->full_name(), "/",
                      Method(method)->name());
}

class GrpcCall final : public LinkCall {
 public:
  GrpcCall(int method, const google::protobuf::Message& request)
      : LinkCall(method),
        path_(PathOf(method)),
        request_(request.SerializeAsString()) {}

  void Start(grpc::TestClient& client) {
    call_ = client.Call(path_, request_);
    call_->on_over = [this] {
      if (call_->status.ok() && !response->ParseFromString(call_->response)) {
        End("the response does not parse");
      } else {
        End(std::string(call_->status.message()));
      }
    };
  }

  // Nothing more is heard of it.
  void Detach() {
    if (call_) {
      call_->on_over = [] {};
    }
  }

 private:
  const std::string path_;
  const std::string request_;
  std::shared_ptr<grpc::TestCall> call_;
};

class GrpcStream final : public LinkStream {
 public:
  GrpcStream(grpc::TestClient& client, int method, Traffic& traffic)
      : is_questions_(torvane::KindOf(*Method(method)) ==
                      torvane::MethodKind::kCallbackStream),
        traffic_(traffic),
        stream_(client.Open(PathOf(method))) {
    ++traffic_.sent;
    ++traffic_.open_at_clients;
    stream_->on_message = [this](const std::string& message) {
      OnMessage(message);
    };
    stream_->on_over = [this] { NoteOver(); };
  }

  void Send(const transport::StreamMessage& message) override {
    if (!may_send()) {
      return;
    }
    std::string bytes = message.payload();
    if (message.call_id() != 0) {
      grpc::AppendCallId(message.call_id(), bytes);
    }
    SendBytes(bytes);
  }
  // A stream of events has no message that says it.
  void SendError(const transport::StreamMessage& message) override {
    if (!may_send() || !is_questions_) {
      return;
    }
    std::string bytes = message.payload();
    bytes += {grpc::kDeclinedField << 3, 1};
    grpc::AppendCallId(message.call_id(), bytes);
    SendBytes(bytes);
  }
  // Closing one's half ends questions, not events.
  void End() override {
    if (is_questions_) {
      stream_->HalfClose();
    } else {
      stream_->Cancel();
    }
    ended_ = true;
    traffic_.has_lost = true;
  }

  void Break() {
    stream_->Cancel();
    ended_ = true;
    NoteOver();
    stream_->on_message = [](const std::string&) {};
    stream_->on_over = [] {};
  }

 private:
  bool may_send() const { return !ended_ && !over; }
  void SendBytes(const std::string& bytes) {
    ++traffic_.sent;
    stream_->Send(bytes);
  }
  void NoteOver() {
    traffic_.has_lost = true;
    traffic_.open_at_clients -= over ? 0 : 1;
    over = true;
  }
  void OnMessage(const std::string& bytes) {
    ++traffic_.arrived_back;
    transport::StreamMessage message;
    message.set_payload(bytes);
    if (is_questions_) {
      const grpc::QuestionFields said =
          grpc::TakeQuestionFields(*message.mutable_payload());
      message.set_call_id(said.call_id.value_or(0));
    }
    received.push_back(message);
  }

  const bool is_questions_;
  Traffic& traffic_;
  const std::shared_ptr<grpc::TestStream> stream_;
  bool ended_ = false;
};

// A call begins when what was sent before has arrived, as over the other
// transports: a client of gRPC has to wait for what it wants to be sure of.
class GrpcLink final : public Link {
 public:
  GrpcLink(loop::Loop& loop, const std::string& address, Traffic& traffic)
      : loop_(loop), traffic_(traffic), client_(loop, address) {}
  ~GrpcLink() override { Detach(); }

  LinkCall& Call(int method,
                 const google::protobuf::Message& request) override {
    GrpcCall& call =
        *calls_.emplace_back(std::make_unique<GrpcCall>(method, request));
    StartWhenAllHasArrived(call);
    return call;
  }
  LinkStream& Open(int method) override {
    return *streams_.emplace_back(
        std::make_unique<GrpcStream>(client_, method, traffic_));
  }
  void Break() override {
    Detach();
    client_.CancelAll();
  }

 private:
  void StartWhenAllHasArrived(GrpcCall& call) {
    if (traffic_.has_all_arrived()) {
      call.Start(client_);
    } else {
      loop_.Post([this, &call, weak_here = std::weak_ptr<bool>(here_)] {
        if (!weak_here.expired()) {
          StartWhenAllHasArrived(call);
        }
      });
    }
  }
  void Detach() {
    here_.reset();
    for (const auto& call : calls_) {
      call->Detach();
    }
    for (const auto& stream : streams_) {
      stream->Break();
    }
  }

  loop::Loop& loop_;
  Traffic& traffic_;
  std::shared_ptr<bool> here_ = std::make_shared<bool>();
  std::vector<std::unique_ptr<GrpcCall>> calls_;
  std::vector<std::unique_ptr<GrpcStream>> streams_;
  // Destroyed first: what is under way refers to calls and streams.
  grpc::TestClient client_;
};

// A front before some backend.
class GrpcHost : public Host {
 public:
  std::unique_ptr<Link> Connect() override {
    return std::make_unique<GrpcLink>(loop_, address_, traffic_);
  }
  void Stop() override {
    if (std::exchange(stopped_, true)) {
      return;
    }
    traffic_.has_lost = true;
    front_->Stop(std::chrono::milliseconds(0), [] {});
  }
  void RunReady() override {
    do {
      loop_.RunUntil([this] { return is_settled(); });
      loop_.RunReady();
    } while (!is_settled());
  }

 protected:
  void Serve(Backend& backend) {
    counted_ = std::make_unique<CountedBackend>(backend, traffic_);
    grpc::FrontOptions options;
    options.limits = PatientLimits();
    front_ = std::make_unique<grpc::Front>(loop_, *counted_, options);
    address_ =
        absl::StrCat("127.0.0.1:", front_->Listen("127.0.0.1:0").value());
  }
  void StopServing() { front_.reset(); }

 private:
  // Whether all threads are idle. The streams of a test end together.
  bool is_settled() const {
    if (traffic_.has_lost) {
      return traffic_.open_at_clients == 0 && traffic_.open_at_backend == 0;
    }
    return traffic_.has_all_arrived() &&
           traffic_.sent_back == traffic_.arrived_back;
  }

  Traffic traffic_;
  std::unique_ptr<CountedBackend> counted_;
  std::unique_ptr<grpc::Front> front_;
  bool stopped_ = false;
  std::string address_;
};

class GrpcServices final : public GrpcHost {
 public:
  GrpcServices() {
    backend_.AddService(&service_);
    Serve(backend_);
  }
  ~GrpcServices() override { StopServing(); }

  bool HasStreams() const override {
    return backend_.counters().streams_now != 0;
  }

 private:
  ScriptedService service_{loop_};
  grpc::ServiceBackend backend_{loop_, PatientLimits(),
                                serving::UnclearMessages::kRefuse};
};

class GrpcGateway final : public GrpcHost {
 public:
  GrpcGateway() {
    server_.AddService(&service_);
    ABSL_CHECK_OK(server_.Listen(path_));
    Serve(backend_);
  }
  ~GrpcGateway() override { StopServing(); }

  bool HasStreams() const override {
    return server_.counters().streams_now != 0;
  }

 private:
  static transport::ServerOptions ServerOptions() {
    transport::ServerOptions options;
    options.limits = PatientLimits();
    return options;
  }
  static transport::ReconnectingOptions ConnectionOptions() {
    transport::ReconnectingOptions options;
    options.client.limits = PatientLimits();
    return options;
  }

  const torvane::PrivateFolder folder_;
  const std::string path_ = folder_.File("socket");
  ScriptedService service_{loop_};
  transport::Server server_{loop_, ServerOptions()};
  rpc_gateway::HostBackend backend_{loop_, path_, ConnectionOptions()};
};

}  // namespace

std::unique_ptr<Host> GrpcServicesHost() {
  return std::make_unique<GrpcServices>();
}

std::unique_ptr<Host> GrpcGatewayHost() {
  return std::make_unique<GrpcGateway>();
}

}  // namespace rpc::conformance
