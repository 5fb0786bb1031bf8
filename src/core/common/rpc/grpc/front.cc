#include "core/common/rpc/grpc/front.h"

#include <grpcpp/ext/health_check_service_server_builder_option.h>
#include <grpcpp/generic/async_generic_service.h>
#include <grpcpp/health_check_service_interface.h>
#include <grpcpp/resource_quota.h>
#include <grpcpp/security/server_credentials.h>
#include <grpcpp/server.h>
#include <grpcpp/server_builder.h>

#include <algorithm>
#include <limits>
#include <map>
#include <optional>
#include <string>
#include <thread>
#include <utility>

#include "absl/log/absl_check.h"
#include "absl/strings/str_cat.h"
#include "core/common/rpc/grpc/front/deadline.h"
#include "core/common/rpc/grpc/front/exchange.h"
#include "core/common/rpc/grpc/front/listener.h"
#include "core/common/rpc/grpc/front/peer.h"
#include "core/common/rpc/grpc/front/sliced_tasks.h"
#include "core/common/rpc/grpc/front/unary_paths.h"
#include "core/common/rpc/grpc/reflection/reflection_answers.h"

namespace rpc::grpc {
namespace {

absl::Status Stopping() {
  return absl::UnavailableError("the server is stopping");
}

// Turns away who has no token.
class RefusedCall final : public ::grpc::ServerGenericBidiReactor {
 public:
  RefusedCall() {
    Finish(::grpc::Status(::grpc::StatusCode::UNAUTHENTICATED,
                          "the token is missing or wrong"));
  }
  void OnDone() override { delete this; }
};

std::string_view AuthorizationOf(const ::grpc::CallbackServerContext& context) {
  const auto& metadata = context.client_metadata();
  const auto entry = metadata.find("authorization");
  return entry == metadata.end()
             ? std::string_view()
             : std::string_view(entry->second.data(), entry->second.size());
}

Exchange::Beginning BeginningOf(
    const ::grpc::GenericCallbackServerContext& context) {
  return {context.method(), context.peer(), DeadlineOf(context.raw_deadline())};
}

std::shared_ptr<::grpc::ServerCredentials> CredentialsOf(
    const Security& security) {
  if (!security.has_tls()) {
    return ::grpc::InsecureServerCredentials();
  }
  ::grpc::SslServerCredentialsOptions options(
      security.tls_client_ca.empty()
          ? GRPC_SSL_DONT_REQUEST_CLIENT_CERTIFICATE
          : GRPC_SSL_REQUEST_AND_REQUIRE_CLIENT_CERTIFICATE_AND_VERIFY);
  options.pem_root_certs = security.tls_client_ca;
  options.pem_key_cert_pairs.push_back(
      {security.tls_key, security.tls_certificate});
  return ::grpc::SslServerCredentials(options);
}

// gRPC tells what it cannot use only where it listens itself. So it does, for a
// moment, at any port of the host; nothing is served there.
bool IsUsable(const std::shared_ptr<::grpc::ServerCredentials>& credentials,
              const std::string& address) {
  ::grpc::CallbackGenericService nothing;
  ::grpc::ServerBuilder builder;
  builder.RegisterCallbackGenericService(&nothing);
  builder.AddListeningPort(
      absl::StrCat(address.substr(0, address.rfind(':')), ":0"), credentials);
  return builder.BuildAndStart() != nullptr;
}

int ToInt(std::chrono::milliseconds time) {
  return static_cast<int>(
      std::min<int64_t>(time.count(), std::numeric_limits<int>::max()));
}

// When `time` will be over, by the steady clock.
gpr_timespec DeadlineIn(loop::Clock::duration time) {
  return gpr_time_add(
      gpr_now(GPR_CLOCK_MONOTONIC),
      gpr_time_from_nanos(std::chrono::nanoseconds(time).count(),
                          GPR_TIMESPAN));
}

// More than enough for what is written already but for the network.
constexpr std::chrono::seconds kTimeForLastWrites(1);

// Shared by the calls that have begun and that gRPC is not done with; posts
// when there is none any more.
class UnderWay {
 public:
  UnderWay(loop::Loop& loop, loop::Task on_none)
      : loop_(loop), on_none_(std::move(on_none)) {}
  UnderWay(const UnderWay&) = delete;
  UnderWay& operator=(const UnderWay&) = delete;
  ~UnderWay() { loop_.Post(std::move(on_none_)); }

 private:
  loop::Loop& loop_;
  loop::Task on_none_;
};

}  // namespace

// Takes gRPC's calls on gRPC's threads, and hands them to the loop.
class FrontCore final : public std::enable_shared_from_this<FrontCore>,
                        private ::grpc::CallbackGenericService {
 public:
  FrontCore(loop::Loop& loop, Backend& backend, FrontOptions options)
      : loop_(loop),
        options_(std::move(options)),
        reflection_(std::make_shared<ReflectionAnswers>(Offer())),
        stream_ends_(std::make_shared<SlicedTasks>(loop)),
        shared_({loop, backend, options_, reflection_, unary_paths_,
                 *stream_ends_}) {
    ABSL_CHECK_OK(serving::Validate(options_.limits));
    ABSL_CHECK_GE(options_.max_incoming_bytes,
                  options_.limits.max_client_frame_bytes);
  }

  absl::StatusOr<int> Listen(const std::string& address);
  void SetServing(const Offer& offer);
  void SetNotServing();
  void Stop(std::chrono::milliseconds grace, std::function<void()> on_stopped);

  // The front is being destroyed.
  void Close();

 private:
  // ::grpc::CallbackGenericService, on gRPC's threads:
  ::grpc::ServerGenericBidiReactor* CreateReactor(
      ::grpc::GenericCallbackServerContext* context) override;

  void Begin(const std::shared_ptr<Exchange>& exchange);
  absl::StatusOr<Peer*> PeerOf(const std::string& name);
  absl::Status MakeRoomForPeer();
  void SweepLater();
  void Sweep();
  void NoteServing(const std::string& service, bool serving);
  void AwaitCalls(std::chrono::milliseconds grace);
  void ShutDown();

  loop::Loop& loop_;
  const FrontOptions options_;
  std::shared_ptr<const ReflectionAnswers> reflection_;
  UnaryPaths unary_paths_;
  const std::shared_ptr<SlicedTasks> stream_ends_;
  const Peer::Shared shared_;
  // Keeps the loop running while gRPC may post to it.
  std::optional<loop::Loop::Work> work_;
  std::optional<Listener> listener_;
  std::unique_ptr<::grpc::experimental::ExternalConnectionAcceptor> acceptor_;
  std::unique_ptr<::grpc::Server> server_;

  // Stopping: no call may begin any more; those under way, or the grace, are
  // over; gRPC has shut down.
  bool stopping_ = false;
  std::function<void()> on_stopped_;
  std::unique_ptr<loop::Timer> grace_timer_;
  loop::Clock::time_point grace_end_;
  std::thread shutdown_;

  // Whose health has been told of.
  std::vector<std::string> services_;
  // By what gRPC calls them.
  std::map<std::string, std::unique_ptr<Peer>> peers_;
  std::unique_ptr<loop::Timer> sweep_timer_;
  // Let go when stopping.
  std::shared_ptr<UnderWay> under_way_;
};

absl::StatusOr<int> FrontCore::Listen(const std::string& address) {
  ABSL_CHECK(server_ == nullptr) << "Listen() may be used once";
  absl::Status allowed = Check(options_.security, address);
  if (!allowed.ok()) {
    return allowed;
  }
  listener_.emplace(loop_, options_.limits.accept_pause);
  absl::StatusOr<int> port = listener_->Open(address);
  if (!port.ok()) {
    return port;
  }
  const auto credentials = CredentialsOf(options_.security);
  if (options_.security.has_tls() && !IsUsable(credentials, address)) {
    listener_.reset();
    return absl::UnavailableError(
        "gRPC cannot serve: the certificate, its key or the CA of clients is "
        "no good");
  }
  work_.emplace(loop_);
  under_way_ =
      std::make_shared<UnderWay>(loop_, [weak_self = weak_from_this()] {
        if (const auto self = weak_self.lock()) {
          self->ShutDown();
        }
      });
  const serving::Limits& limits = options_.limits;
  ::grpc::EnableDefaultHealthCheckService(true);
  ::grpc::ServerBuilder builder;
  acceptor_ = builder.experimental().AddExternalConnectionAcceptor(
      ::grpc::ServerBuilder::experimental_type::ExternalConnectionType::FROM_FD,
      credentials);
  builder.RegisterCallbackGenericService(this);
  builder.SetMaxReceiveMessageSize(
      static_cast<int>(limits.max_client_frame_bytes));
  builder.SetMaxSendMessageSize(-1);
  builder.SetResourceQuota(::grpc::ResourceQuota("incoming messages")
                               .Resize(options_.max_incoming_bytes));
  // What is within the limit may become a thousand times as long.
  builder.SetCompressionAlgorithmSupportStatus(GRPC_COMPRESS_DEFLATE, false);
  builder.SetCompressionAlgorithmSupportStatus(GRPC_COMPRESS_GZIP, false);
  const auto argument = [&builder](const char* name, int value) {
    builder.AddChannelArgument(name, value);
  };
  argument(GRPC_ARG_MAX_CONCURRENT_STREAMS,
           static_cast<int>(limits.max_calls + limits.max_streams));
  argument(GRPC_ARG_KEEPALIVE_TIME_MS, ToInt(options_.keepalive_time));
  argument(GRPC_ARG_KEEPALIVE_TIMEOUT_MS, ToInt(options_.keepalive_timeout));
  argument(GRPC_ARG_KEEPALIVE_PERMIT_WITHOUT_CALLS, 1);
  argument(GRPC_ARG_HTTP2_MAX_PINGS_WITHOUT_DATA, 0);
  argument(GRPC_ARG_HTTP2_MIN_RECV_PING_INTERVAL_WITHOUT_DATA_MS, 10'000);
  server_ = builder.BuildAndStart();
  ABSL_CHECK(server_ != nullptr) << "gRPC does not start";
  server_->GetHealthCheckService()->SetServingStatus(false);
  listener_->Start([this](int socket, loop::ScopedFd connection) {
    ::grpc::experimental::ExternalConnectionAcceptor::NewConnectionParameters
        parameters;
    parameters.listener_fd = socket;
    parameters.fd = connection.Release();
    acceptor_->HandleNewConnection(&parameters);
  });
  return port;
}

::grpc::ServerGenericBidiReactor* FrontCore::CreateReactor(
    ::grpc::GenericCallbackServerContext* context) {
  if (!Admits(options_.security, AuthorizationOf(*context))) {
    return new RefusedCall;
  }
  const auto exchange = std::make_shared<Exchange>(
      loop_, BeginningOf(*context),
      [weak_self = weak_from_this()](const std::shared_ptr<Exchange>& begun) {
        if (const auto self = weak_self.lock()) {
          self->Begin(begun);
        }
      });
  return exchange->MakeReactor(unary_paths_.Has(exchange->beginning().path)
                                   ? Exchange::BeginsWith::kFirstMessage
                                   : Exchange::BeginsWith::kHeaders);
}

void FrontCore::Begin(const std::shared_ptr<Exchange>& exchange) {
  if (stopping_) {
    exchange->End(Stopping());
    return;
  }
  exchange->HoldUntilDone(under_way_);
  const absl::StatusOr<Peer*> peer = PeerOf(exchange->beginning().peer);
  if (peer.ok()) {
    (*peer)->Begin(exchange);
  } else {
    exchange->End(peer.status());
  }
}

absl::StatusOr<Peer*> FrontCore::PeerOf(const std::string& name) {
  const auto known = peers_.find(name);
  if (known != peers_.end()) {
    return known->second.get();
  }
  absl::Status room = MakeRoomForPeer();
  if (!room.ok()) {
    return room;
  }
  if (sweep_timer_ == nullptr) {
    SweepLater();
  }
  return peers_.emplace(name, std::make_unique<Peer>(shared_, name))
      .first->second.get();
}

// Forgets the one that has been idle for longest, if there are too many.
absl::Status FrontCore::MakeRoomForPeer() {
  if (peers_.size() < options_.limits.max_connections) {
    return absl::OkStatus();
  }
  auto oldest = peers_.end();
  for (auto peer = peers_.begin(); peer != peers_.end(); ++peer) {
    if (peer->second->is_idle() &&
        (oldest == peers_.end() ||
         peer->second->idle_since() < oldest->second->idle_since())) {
      oldest = peer;
    }
  }
  if (oldest == peers_.end()) {
    return absl::ResourceExhaustedError(
        absl::StrCat("max_connections, ", options_.limits.max_connections,
                     ", peers have something under way"));
  }
  peers_.erase(oldest);
  return absl::OkStatus();
}

void FrontCore::SweepLater() {
  sweep_timer_ = loop_.RunAfter(options_.idle_peer, [this] { Sweep(); });
}

void FrontCore::Sweep() {
  const loop::Clock::time_point now = loop_.Now();
  std::erase_if(peers_, [&](const auto& entry) {
    const Peer& peer = *entry.second;
    return peer.is_idle() && peer.idle_since() + options_.idle_peer <= now;
  });
  sweep_timer_.reset();
  if (!peers_.empty()) {
    SweepLater();
  }
}

void FrontCore::SetServing(const Offer& offer) {
  reflection_ = std::make_shared<ReflectionAnswers>(offer);
  for (const std::string& service : services_) {
    if (std::ranges::find(offer.services, service) == offer.services.end()) {
      NoteServing(service, false);
    }
  }
  services_ = offer.services;
  for (const std::string& service : services_) {
    NoteServing(service, true);
  }
  NoteServing("", true);
}

void FrontCore::SetNotServing() {
  unary_paths_.Clear();
  for (const std::string& service : services_) {
    NoteServing(service, false);
  }
  NoteServing("", false);
}

void FrontCore::NoteServing(const std::string& service, bool serving) {
  ABSL_CHECK(server_ != nullptr) << "Listen() comes first";
  server_->GetHealthCheckService()->SetServingStatus(service, serving);
}

void FrontCore::Stop(std::chrono::milliseconds grace,
                     std::function<void()> on_stopped) {
  ABSL_CHECK(server_ != nullptr && !stopping_)
      << "Stop() comes once, after Listen()";
  stopping_ = true;
  on_stopped_ = std::move(on_stopped);
  // What begins from now on is told so at once.
  unary_paths_.Clear();
  server_->GetHealthCheckService()->Shutdown();
  for (const auto& [name, peer] : peers_) {
    peer->EndStreams(Stopping());
  }
  stream_ends_->Add([this, grace] { AwaitCalls(grace); });
}

// Streams have ended.
void FrontCore::AwaitCalls(std::chrono::milliseconds grace) {
  grace_timer_ = loop_.RunAfter(grace, [this] { ShutDown(); });
  grace_end_ = loop_.TimeAfter(grace);
  under_way_.reset();
}

// gRPC waits for its threads meanwhile, and they may wait for the loop.
void FrontCore::ShutDown() {
  grace_timer_.reset();
  if (shutdown_.joinable() || on_stopped_ == nullptr) {
    return;
  }
  listener_.reset();
  const auto time = std::min<loop::Clock::duration>(grace_end_ - loop_.Now(),
                                                    kTimeForLastWrites);
  shutdown_ = std::thread([this, time] {
    // Until then gRPC writes what it has not written yet, such as the ends of
    // streams. It waits for idle connections and for watchers of its own
    // services, too: so not for all that is left of a long grace.
    server_->Shutdown(DeadlineIn(time));
    loop_.Post([weak_self = weak_from_this()] {
      if (const auto self = weak_self.lock()) {
        self->work_.reset();
        std::exchange(self->on_stopped_, nullptr)();
      }
    });
  });
}

// A call that gRPC cancels finishes by itself, so shutting down needs no loop.
void FrontCore::Close() {
  stopping_ = true;
  listener_.reset();
  for (const auto& [name, peer] : peers_) {
    peer->EndAll(Stopping());
  }
  if (server_ != nullptr) {
    server_->Shutdown(DeadlineIn(loop::Clock::duration::zero()));
  }
  if (shutdown_.joinable()) {
    shutdown_.join();
  }
  on_stopped_ = nullptr;
  peers_.clear();
  sweep_timer_.reset();
  grace_timer_.reset();
}

Front::Front(loop::Loop& loop, Backend& backend, FrontOptions options)
    : core_(std::make_shared<FrontCore>(loop, backend, std::move(options))) {}

Front::~Front() {
  core_->Close();
}

absl::StatusOr<int> Front::Listen(const std::string& address) {
  return core_->Listen(address);
}

void Front::SetServing(const Offer& offer) {
  core_->SetServing(offer);
}

void Front::SetNotServing() {
  core_->SetNotServing();
}

void Front::Stop(std::chrono::milliseconds grace,
                 std::function<void()> on_stopped) {
  core_->Stop(grace, std::move(on_stopped));
}

}  // namespace rpc::grpc
