#include "core/common/rpc/grpc/server.h"

#include <set>
#include <utility>

#include "core/common/rpc/grpc/services/service_backend.h"

namespace rpc::grpc {
namespace {

using google::protobuf::FileDescriptor;
using google::protobuf::FileDescriptorSet;
using google::protobuf::ServiceDescriptor;

void AddWithImports(const FileDescriptor& file,
                    std::set<const FileDescriptor*>& added,
                    FileDescriptorSet& files) {
  if (!added.insert(&file).second) {
    return;
  }
  for (int i = 0; i < file.dependency_count(); ++i) {
    AddWithImports(*file.dependency(i), added, files);
  }
  file.CopyTo(files.add_file());
}

Offer OfferOf(const std::vector<const ServiceDescriptor*>& services) {
  Offer offer;
  std::set<const FileDescriptor*> added;
  for (const ServiceDescriptor* service : services) {
    offer.services.push_back(service->full_name());
    AddWithImports(*service->file(), added, offer.files);
  }
  return offer;
}

}  // namespace

Server::Server(loop::Loop& loop, const ServerOptions& options)
    : backend_(std::make_unique<ServiceBackend>(loop,
                                                options.front.limits,
                                                options.unclear_messages)),
      front_(loop, *backend_, options.front) {}

Server::~Server() {
  backend_->EndSubscriptionsFirst();
}

void Server::AddService(torvane::Service* service) {
  backend_->AddService(service);
}

std::vector<const ServiceDescriptor*> Server::Services() const {
  return backend_->Services();
}

absl::StatusOr<int> Server::Listen(const std::string& address) {
  absl::StatusOr<int> port = front_.Listen(address);
  if (port.ok()) {
    front_.SetServing(OfferOf(Services()));
  }
  return port;
}

void Server::Stop(std::chrono::milliseconds grace,
                  std::function<void()> on_stopped) {
  front_.Stop(grace, std::move(on_stopped));
}

const serving::Counters& Server::counters() const {
  return backend_->counters();
}

serving::ServerReport Server::Report() const {
  return backend_->Report();
}

}  // namespace rpc::grpc
