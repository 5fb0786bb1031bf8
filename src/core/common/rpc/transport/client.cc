#include "core/common/rpc/transport/client.h"

#include <system_error>
#include <utility>

#include "absl/strings/str_cat.h"
#include "core/common/rpc/transport/client_core.h"
#include "core/common/rpc/transport/unix_socket.h"

namespace rpc::transport {

absl::StatusOr<std::unique_ptr<Client>> Client::Connect(asio::io_context& loop,
                                                        const std::string& path,
                                                        ClientOptions options) {
  auto socket = OpenSocket(loop, path);
  if (!socket.ok()) {
    return socket.status();
  }
  return Adopt(loop, *std::move(socket), std::move(options));
}

absl::StatusOr<asio::local::stream_protocol::socket> Client::OpenSocket(
    asio::io_context& loop,
    const std::string& path) {
  absl::StatusOr<ScopedFd> fd = ConnectToUnixSocket(path);
  if (!fd.ok()) {
    return fd.status();
  }
  asio::local::stream_protocol::socket socket(loop);
  std::error_code error;
  socket.assign(asio::local::stream_protocol(), fd->Release(), error);
  if (error) {
    return absl::InternalError(
        absl::StrCat("cannot watch the socket: ", error.message()));
  }
  return socket;
}

absl::StatusOr<std::unique_ptr<Client>> Client::Adopt(
    asio::io_context& loop,
    asio::local::stream_protocol::socket socket,
    ClientOptions options) {
  auto core =
      std::make_shared<ClientCore>(loop, std::move(socket), std::move(options));
  const absl::Status status = core->Handshake();
  std::unique_ptr<Client> client(new Client(std::move(core)));
  if (!status.ok()) {
    return status;
  }
  return client;
}

Client::Client(std::shared_ptr<ClientCore> core) : core_(std::move(core)) {}

Client::~Client() {
  core_->Close();
}

void Client::CallMethod(const google::protobuf::MethodDescriptor* method,
                        google::protobuf::RpcController* controller,
                        const google::protobuf::Message* request,
                        google::protobuf::Message* response,
                        google::protobuf::Closure* done) {
  core_->Call(method, static_cast<ClientController*>(controller), *request,
              response, done);
}

const absl::Status& Client::status() const {
  return core_->status();
}

const Counters& Client::counters() const {
  return core_->counters();
}

void Client::set_on_closed(std::function<void(const absl::Status&)> on_closed) {
  core_->set_on_closed(std::move(on_closed));
}

}  // namespace rpc::transport
