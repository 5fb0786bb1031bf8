#include "core/common/rpc/grpc/front/listener.h"

#include <cerrno>
#include <cstdint>
#include <set>
#include <string_view>
#include <system_error>
#include <utility>

#include "absl/log/absl_check.h"
#include "absl/strings/str_cat.h"
#include "absl/strings/strip.h"
#include "base/logging.h"
#include "core/common/rpc/loop/asio.h"
#include "core/common/rpc/loop/sequence.h"

namespace rpc::grpc {
namespace {

using asio::ip::tcp;

std::error_code ListenAt(const tcp::endpoint& endpoint,
                         tcp::acceptor& acceptor) {
  std::error_code error;
  acceptor.open(endpoint.protocol(), error);
  // Ports of connections that have just ended are free.
  if (!error) {
    acceptor.set_option(tcp::acceptor::reuse_address(true), error);
  }
  if (!error) {
    acceptor.bind(endpoint, error);
  }
  if (!error) {
    acceptor.listen(asio::socket_base::max_listen_connections, error);
  }
  return error;
}

// The machine may know names for what it does not have, such as IPv6.
bool IsNotOfThisMachine(const std::error_code& error) {
  return error.value() == EADDRNOTAVAIL || error.value() == EAFNOSUPPORT;
}

}  // namespace

// Listens at one endpoint. Shared with its operation under way.
class Listener::Socket final : public std::enable_shared_from_this<Socket> {
 public:
  Socket(Listener& listener, tcp::acceptor acceptor)
      : listener_(listener), acceptor_(std::move(acceptor)) {}

  uint16_t port() const {
    std::error_code error;
    const tcp::endpoint endpoint = acceptor_.local_endpoint(error);
    ABSL_CHECK(!error) << error.message();
    return endpoint.port();
  }

  void Accept() {
    acceptor_.async_accept(
        [weak_self = weak_from_this()](const std::error_code& error,
                                       tcp::socket connection) {
          if (const auto self = weak_self.lock()) {
            self->OnAccept(error, std::move(connection));
          }
        });
  }

 private:
  void OnAccept(const std::error_code& error, tcp::socket connection) {
    if (error) {
      listener_.NotePause(error.message());
      timer_ = listener_.loop_.RunAfter(listener_.pause_, [this] { Accept(); });
      return;
    }
    std::error_code ignored;
    // Nothing that is written waits for more.
    connection.set_option(tcp::no_delay(true), ignored);
    connection.native_non_blocking(true, ignored);
    listener_.OnAccepted(acceptor_.native_handle(),
                         loop::ScopedFd(connection.release(ignored)));
    Accept();
  }

  Listener& listener_;
  tcp::acceptor acceptor_;
  std::unique_ptr<loop::Timer> timer_;
};

Listener::Listener(loop::Loop& loop, std::chrono::milliseconds pause)
    : loop_(loop), pause_(pause) {}

Listener::~Listener() = default;

absl::StatusOr<int> Listener::Open(const std::string& address) {
  const size_t colon = address.rfind(':');
  ABSL_CHECK(colon != std::string::npos) << address;
  std::string_view host = std::string_view(address).substr(0, colon);
  if (absl::ConsumePrefix(&host, "[")) {
    absl::ConsumeSuffix(&host, "]");
  }
  std::error_code error;
  const auto found = tcp::resolver(loop_.context())
                         .resolve(host, address.substr(colon + 1), error);
  // A name may be known twice.
  for (tcp::endpoint endpoint :
       std::set<tcp::endpoint>(found.begin(), found.end())) {
    if (!sockets_.empty()) {
      endpoint.port(sockets_[0]->port());
    }
    tcp::acceptor acceptor(loop_.context());
    error = ListenAt(endpoint, acceptor);
    if (!error) {
      sockets_.push_back(std::make_shared<Socket>(*this, std::move(acceptor)));
    } else if (!IsNotOfThisMachine(error)) {
      sockets_.clear();
      break;
    }
  }
  if (sockets_.empty()) {
    return absl::UnavailableError(
        absl::StrCat("cannot listen at ", address, ": ", error.message()));
  }
  return sockets_[0]->port();
}

void Listener::Start(Handler handler) {
  handler_ = std::move(handler);
  for (const auto& socket : sockets_) {
    socket->Accept();
  }
}

void Listener::OnAccepted(int socket, loop::ScopedFd connection) {
  pausing_ = false;
  handler_(socket, std::move(connection));
}

void Listener::NotePause(const std::string& why) {
  if (!std::exchange(pausing_, true)) {
    LOG(WARNING) << "No connection can be accepted, trying again every "
                 << pause_.count() << " ms: " << why;
  }
}

}  // namespace rpc::grpc
