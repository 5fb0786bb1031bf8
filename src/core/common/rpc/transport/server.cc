#include "core/common/rpc/transport/server.h"

#include <utility>

#include "core/common/rpc/transport/server/server_core.h"

namespace rpc::transport {

Server::Server(loop::Loop& loop, const ServerOptions& options)
    : core_(std::make_shared<ServerCore>(loop, options)) {}

Server::~Server() {
  core_->Close();
}

void Server::AddService(torvane::Service* service) {
  core_->AddService(service);
}

std::vector<const google::protobuf::ServiceDescriptor*> Server::Services()
    const {
  return core_->Services();
}

absl::Status Server::Listen(const std::string& path) {
  return core_->Listen(path);
}

void Server::Adopt(loop::ScopedFd socket) {
  core_->Adopt(std::move(socket));
}

void Server::Stop() {
  core_->Stop();
}

const serving::Counters& Server::counters() const {
  return core_->counters();
}

serving::ServerReport Server::Report() const {
  return core_->Report();
}

}  // namespace rpc::transport
