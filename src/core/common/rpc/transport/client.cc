#include "core/common/rpc/transport/client.h"

#include <system_error>
#include <utility>

#include "absl/strings/str_cat.h"
#include "base/logging.h"
#include "core/common/rpc/transport/client/client_core.h"
#include "core/common/rpc/transport/client/method_check.h"
#include "core/common/rpc/transport/socket/unix_socket.h"

namespace rpc::transport {

absl::StatusOr<std::unique_ptr<Client>> Client::Connect(loop::Loop& loop,
                                                        const std::string& path,
                                                        ClientOptions options) {
  absl::Status valid = serving::Validate(options.limits);
  if (!valid.ok()) {
    return valid;
  }
  absl::StatusOr<loop::ScopedFd> socket = OpenSocket(path);
  if (!socket.ok()) {
    return socket.status();
  }
  return Adopt(loop, *std::move(socket), std::move(options));
}

absl::StatusOr<loop::ScopedFd> Client::OpenSocket(const std::string& path) {
  return ConnectToUnixSocket(path);
}

absl::StatusOr<std::unique_ptr<Client>> Client::Adopt(loop::Loop& loop,
                                                      loop::ScopedFd fd,
                                                      ClientOptions options) {
  absl::StatusOr<std::unique_ptr<Client>> client =
      Make(loop, std::move(fd), std::move(options));
  if (client.ok()) {
    const absl::Status welcomed = (*client)->core_->RunHandshake();
    if (!welcomed.ok()) {
      return welcomed;
    }
  }
  return client;
}

absl::StatusOr<std::unique_ptr<Client>> Client::Make(loop::Loop& loop,
                                                     loop::ScopedFd fd,
                                                     ClientOptions options) {
  absl::Status status = serving::Validate(options.limits);
  if (!status.ok()) {
    return status;
  }
  asio::local::stream_protocol::socket socket(loop.context());
  std::error_code error;
  socket.assign(asio::local::stream_protocol(), fd.get(), error);
  if (error) {
    return absl::InternalError(
        absl::StrCat("cannot watch the socket: ", error.message()));
  }
  fd.Release();
  return std::unique_ptr<Client>(new Client(std::make_shared<ClientCore>(
      loop, std::move(socket), std::move(options))));
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
  if (controller == nullptr) {
    LOG(ERROR) << "A call of " << NameOf(method) << " has no controller.";
    core_->RunSoon(done);
    return;
  }
  if (!ClientController::IsOne(*controller)) {
    controller->SetFailed(absl::StrCat("the controller for ", NameOf(method),
                                       " is no ClientController"));
    core_->RunSoon(done);
    return;
  }
  core_->Call(method, static_cast<ClientController*>(controller), request,
              response, done);
}

const absl::Status& Client::status() const {
  return core_->status();
}

bool Client::can_send() const {
  return core_->can_send();
}

const serving::Counters& Client::counters() const {
  return core_->counters();
}

void Client::set_on_closed(std::function<void(const absl::Status&)> on_closed) {
  core_->set_on_closed(std::move(on_closed));
}

}  // namespace rpc::transport
