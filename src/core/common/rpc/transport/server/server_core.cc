#include "core/common/rpc/transport/server/server_core.h"

#include <unistd.h>

#include <algorithm>
#include <utility>
#include <vector>

#include "absl/log/absl_check.h"
#include "absl/strings/str_cat.h"
#include "base/logging.h"
#include "core/common/rpc/serving/client_record.h"
#include "core/common/rpc/transport/wire/frame_codec.h"
#include "core/common/rpc/transport/wire/rpc_status.h"

namespace rpc::transport {
namespace {

absl::Status Stopping() {
  return absl::UnavailableError("the server is stopping");
}

}  // namespace

ServerCore::ServerCore(loop::Loop& loop, const ServerOptions& options)
    : loop_(loop),
      options_(options),
      counters_(std::make_shared<serving::Counters>()),
      call_pool_(std::make_shared<serving::CallPool>(loop, counters_)),
      endings_(std::make_shared<serving::EndingQueue>(loop)),
      acceptor_(loop.context()) {
  ABSL_CHECK_OK(serving::Validate(options.limits));
}

ServerCore::~ServerCore() = default;

absl::Status ServerCore::Listen(const std::string& path) {
  ABSL_CHECK(!listener_) << "Listen() may be used once";
  absl::StatusOr<UnixListener> listener = UnixListener::Open(path);
  if (!listener.ok()) {
    return listener.status();
  }
  listener_.emplace(*std::move(listener));
  std::error_code error;
  acceptor_.assign(asio::local::stream_protocol(), listener_->Release(), error);
  if (error) {
    return absl::InternalError(
        absl::StrCat("cannot watch the socket: ", error.message()));
  }
  Accept();
  return absl::OkStatus();
}

void ServerCore::Accept() {
  acceptor_.async_accept([weak_self = weak_from_this()](
                             const std::error_code& error, Socket socket) {
    if (const auto self = weak_self.lock()) {
      self->OnAccept(error, std::move(socket));
    }
  });
}

void ServerCore::OnAccept(const std::error_code& error, Socket socket) {
  if (!acceptor_.is_open()) {
    return;
  }
  if (error) {
    AcceptLater(error);
    return;
  }
  pausing_ = false;
  Serve(std::move(socket));
  Accept();
}

// The process has no descriptor left, or the system no memory. Written down
// once, however long it lasts.
void ServerCore::AcceptLater(const std::error_code& error) {
  ++counters_->limit_hits.accept_pause;
  if (!std::exchange(pausing_, true)) {
    LOG(WARNING) << "No connection can be accepted, trying again every "
                 << options_.limits.accept_pause.count()
                 << " ms: " << error.message();
  }
  accept_timer_ =
      loop_.RunAfter(options_.limits.accept_pause, [this] { Accept(); });
}

void ServerCore::Adopt(loop::ScopedFd fd) {
  Socket socket(loop_.context());
  std::error_code error;
  socket.assign(asio::local::stream_protocol(), fd.get(), error);
  ABSL_CHECK(!error) << "cannot watch the socket: " << error.message();
  fd.Release();
  Serve(std::move(socket));
}

void ServerCore::Serve(Socket socket) {
  const absl::StatusOr<serving::ClientProcess> peer =
      PeerOfUnixSocket(socket.native_handle());
  const absl::Status admission = Admit(peer);
  if (!admission.ok()) {
    TurnAway(std::move(socket), peer, admission);
    return;
  }
  const ServerSession::Shared shared = {
      loop_,     options_.limits, options_.unclear_messages,
      methods_,  *call_pool_,     *endings_,
      counters_, options_.trace};
  const uint64_t id = ++counters_->connections_accepted;
  auto session = std::make_shared<ServerSession>(
      shared, id, std::move(socket), *peer,
      [this](ServerSession* ended) { OnSessionEnded(ended); });
  ++counters_->connections_now;
  sessions_.emplace(session.get(), session);
  session->Start();
}

absl::Status ServerCore::Admit(
    const absl::StatusOr<serving::ClientProcess>& peer) {
  if (!peer.ok()) {
    return peer.status();
  }
  if (peer->user != options_.user) {
    return absl::PermissionDeniedError(
        absl::StrCat("pid ", peer->pid, " belongs to user ", peer->user,
                     "; user ", options_.user, " is served"));
  }
  if (stopped_) {
    return Stopping();
  }
  if (sessions_.size() >= options_.limits.max_connections) {
    ++counters_->limit_hits.max_connections;
    return absl::ResourceExhaustedError(absl::StrCat(
        "max_connections, ", options_.limits.max_connections, ", are open"));
  }
  return absl::OkStatus();
}

void ServerCore::OnSessionEnded(ServerSession* session) {
  --counters_->connections_now;
  sessions_.erase(session);
}

// One write that does not wait; what does not fit is dropped.
void ServerCore::TurnAway(Socket socket,
                          const absl::StatusOr<serving::ClientProcess>& peer,
                          const absl::Status& why) {
  ++counters_->connections_refused;
  LOG(WARNING) << "Refused the connection of "
               << (peer.ok() ? Describe(*peer) : "an unknown process") << ": "
               << why;
  GoodbyeFrame goodbye;
  ToWire(why, goodbye.mutable_status());
  std::string bytes;
  AppendFrame(Frame::kGoodbye, goodbye, FrameSize(goodbye), &bytes);
  std::error_code ignored;
  socket.non_blocking(true, ignored);
  socket.write_some(asio::buffer(bytes), ignored);
}

serving::ServerReport ServerCore::Report() const {
  serving::ServerReport report = {*counters_, {}};
  for (const auto& [key, session] : sessions_) {
    report.connections.push_back(session->Report());
  }
  std::sort(
      report.connections.begin(), report.connections.end(),
      [](const serving::ConnectionReport& one,
         const serving::ConnectionReport& other) { return one.id < other.id; });
  return report;
}

void ServerCore::Stop() {
  StopListening();
  loop_.Post([weak_self = weak_from_this()] {
    if (const auto self = weak_self.lock()) {
      self->CloseSessions();
    }
  });
}

// Removes the file before it closes the listening socket: while that listens,
// no other server replaces the file, so the file is certainly ours.
void ServerCore::StopListening() {
  stopped_ = true;
  if (listener_) {
    listener_->RemoveFile();
  }
  std::error_code ignored;
  acceptor_.close(ignored);
  accept_timer_.reset();
}

void ServerCore::Close() {
  StopListening();
  CloseSessions();
  endings_->FinishAll();
  ABSL_CHECK(sessions_.empty())
      << "a Server is destroyed from within one of its services";
  call_pool_->Close();
}

// Each one removes itself when its streams have ended.
void ServerCore::CloseSessions() {
  endings_->EndSubscriptionsFirst();
  std::vector<std::shared_ptr<ServerSession>> sessions;
  for (const auto& [key, session] : sessions_) {
    sessions.push_back(session);
  }
  for (const auto& session : sessions) {
    session->Stop(Stopping());
  }
}

}  // namespace rpc::transport
