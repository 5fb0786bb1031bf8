#include "core/common/rpc/transport/server.h"

#include <utility>

#include "core/common/rpc/transport/server_core.h"

namespace rpc::transport {

Server::Server(asio::io_context& loop, const ServerOptions& options)
    : core_(std::make_shared<ServerCore>(loop, options)) {}

Server::~Server() {
  core_->Close();
}

void Server::AddService(torvane::Service* service) {
  core_->AddService(service);
}

absl::Status Server::Listen(const std::string& path) {
  return core_->Listen(path);
}

void Server::Adopt(asio::local::stream_protocol::socket socket) {
  core_->Adopt(std::move(socket));
}

void Server::Stop() {
  core_->Stop();
}

const Counters& Server::counters() const {
  return core_->counters();
}

ServerReport Server::Report() const {
  return core_->Report();
}

}  // namespace rpc::transport
