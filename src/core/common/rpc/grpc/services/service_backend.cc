#include "core/common/rpc/grpc/services/service_backend.h"

#include <algorithm>
#include <utility>

#include "absl/log/absl_check.h"
#include "absl/strings/str_cat.h"
#include "core/common/rpc/grpc/services/service_session.h"

namespace rpc::grpc {
namespace {

BackendMethod::Kind KindOf(const serving::ServedMethod& method) {
  if (!method.kind) {
    return BackendMethod::Kind::kOtherStream;
  }
  switch (*method.kind) {
    case torvane::MethodKind::kUnary:
      return BackendMethod::Kind::kUnary;
    case torvane::MethodKind::kEventStream:
      return BackendMethod::Kind::kEvents;
    case torvane::MethodKind::kCallbackStream:
      break;
  }
  return BackendMethod::Kind::kQuestions;
}

class ServiceClient final : public BackendClient {
 public:
  ServiceClient(const ServiceBackend& backend,
                std::shared_ptr<ServiceSession> session)
      : backend_(backend), session_(std::move(session)) {}
  ServiceClient(const ServiceClient&) = delete;
  ServiceClient& operator=(const ServiceClient&) = delete;
  ~ServiceClient() override { session_->Leave(); }

  void Find(std::string_view service,
            std::string_view method,
            FoundCallback on_found) override {
    on_found(backend_.Find(service, method));
  }

  // The front's ids are never in use already.
  void Call(uint64_t id,
            const BackendMethod& method,
            std::chrono::milliseconds timeout,
            const std::string& request) override {
    ABSL_CHECK_OK(session_->calls().Start(id, method.id, timeout, request));
  }
  void Cancel(uint64_t id) override { session_->calls().Cancel(id); }

  void Open(uint64_t id, const BackendMethod& method) override {
    ABSL_CHECK_OK(session_->streams().OnClientOpen(id, method.id));
  }
  absl::Status Send(uint64_t id, transport::StreamMessage& message) override {
    session_->streams().OnClientData(id, &message);
    return absl::OkStatus();
  }
  absl::Status Decline(uint64_t id,
                       transport::StreamMessage& message) override {
    session_->streams().OnClientError(id, &message);
    return absl::OkStatus();
  }
  void End(uint64_t id) override { session_->streams().OnClientEnd(id); }

 private:
  const ServiceBackend& backend_;
  const std::shared_ptr<ServiceSession> session_;
};

}  // namespace

ServiceBackend::ServiceBackend(loop::Loop& loop,
                               const serving::Limits& limits,
                               serving::UnclearMessages unclear_messages)
    : loop_(loop),
      limits_(limits),
      unclear_messages_(unclear_messages),
      counters_(std::make_shared<serving::Counters>()),
      call_pool_(std::make_shared<serving::CallPool>(loop, counters_)),
      endings_(std::make_shared<serving::EndingQueue>(loop)) {}

ServiceBackend::~ServiceBackend() {
  endings_->FinishAll();
  ABSL_CHECK(sessions_.empty())
      << "a server is destroyed from within one of its services";
  call_pool_->Close();
}

void ServiceBackend::AddService(torvane::Service* service) {
  const size_t before = methods_.all().size();
  methods_.Add(service);
  for (size_t id = before; id < methods_.all().size(); ++id) {
    const auto& method = *methods_.all()[id].descriptor;
    ids_.emplace(
        absl::StrCat(method.service()->full_name(), "/", method.name()), id);
  }
}

absl::StatusOr<BackendMethod> ServiceBackend::Find(
    std::string_view service,
    std::string_view method) const {
  const auto id = ids_.find(absl::StrCat(service, "/", method));
  if (id == ids_.end()) {
    return absl::UnimplementedError(
        absl::StrCat("the server has no method ", service, ".", method));
  }
  return BackendMethod{id->second, 0, KindOf(*methods_.Find(id->second))};
}

std::unique_ptr<BackendClient> ServiceBackend::Connect(const std::string& name,
                                                       BackendSink& sink) {
  const auto session = std::make_shared<ServiceSession>(
      *this, ++counters_->connections_accepted, name, sink);
  ++counters_->connections_now;
  sessions_.emplace(session.get(), session);
  return std::make_unique<ServiceClient>(*this, session);
}

void ServiceBackend::OnSessionEnded(ServiceSession* session) {
  --counters_->connections_now;
  sessions_.erase(session);
}

serving::ServerReport ServiceBackend::Report() const {
  serving::ServerReport report = {*counters_, {}};
  for (const auto& [key, session] : sessions_) {
    report.connections.push_back(session->Report());
  }
  std::ranges::sort(report.connections, {}, &serving::ConnectionReport::id);
  return report;
}

}  // namespace rpc::grpc
