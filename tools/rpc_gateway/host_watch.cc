#include "tools/rpc_gateway/host_watch.h"

#include <chrono>
#include <cstddef>
#include <utility>

#include "absl/strings/str_cat.h"
#include "base/logging.h"
#include "rpc/reflection/server_reflection.pb.h"

namespace rpc_gateway {
namespace {

using rpc::reflection::FilesPart;
using rpc::reflection::FilesRequest;
using rpc::reflection::ListServicesRequest;
using rpc::reflection::ServiceList;

constexpr char kReflection[] = "rpc.reflection.ServerReflection";
constexpr std::chrono::seconds kPatience{10};

// More than any contract has, and little enough to be kept.
constexpr size_t kMaxFilesBytes = 64 << 20;

}  // namespace

HostWatch::HostWatch(rpc::loop::Loop& loop,
                     const std::string& socket,
                     rpc::transport::ReconnectingOptions options,
                     rpc::grpc::Front& front)
    : front_(front),
      connection_(
          loop,
          socket,
          std::move(options),
          [this](rpc::transport::Client&, const auto&) { OnConnected(); },
          [this](const absl::Status& why, auto) { OnDown(why); }) {}

// The connection would end the call, which then would say what it has heard.
HostWatch::~HostWatch() {
  call_.reset();
}

void HostWatch::OnConnected() {
  down_noted_ = false;
  offer_ = {};
  files_.clear();
  Ask("ListServices", ListServicesRequest().SerializeAsString(),
      &HostWatch::ReadServices);
}

void HostWatch::OnDown(const absl::Status& why) {
  call_.reset();
  front_.SetNotServing();
  if (!std::exchange(down_noted_, true)) {
    LOG(WARNING) << "The host cannot be reached: " << why;
  }
}

void HostWatch::Ask(const std::string& method,
                    const std::string& request,
                    Parse parse) {
  const auto offered =
      rpc::transport::FindMethod(*connection_.client(), kReflection, method);
  if (!offered.ok()) {
    OnAsked(offered.status());
    return;
  }
  call_.emplace(
      *connection_.client(), offered->id(), kPatience, request,
      [this, parse](const absl::Status& status, const std::string& response) {
        if (connection_.client() == nullptr) {
          return;  // OnDown() comes next.
        }
        const absl::Status read =
            status.ok() ? (this->*parse)(response) : status;
        if (!read.ok()) {
          OnAsked(read);
        }
      });
}

absl::Status HostWatch::ReadServices(const std::string& response) {
  ServiceList list;
  if (!list.ParseFromString(response)) {
    return absl::InternalError("the list of services does not parse");
  }
  offer_.services.assign(list.services().begin(), list.services().end());
  AskForFiles();
  return absl::OkStatus();
}

void HostWatch::AskForFiles() {
  FilesRequest request;
  request.set_offset(files_.size());
  Ask("GetFiles", request.SerializeAsString(), &HostWatch::ReadFiles);
}

absl::Status HostWatch::ReadFiles(const std::string& response) {
  FilesPart part;
  if (!part.ParseFromString(response) || part.bytes().empty() ||
      part.total_bytes() > kMaxFilesBytes) {
    return absl::InternalError("the files do not come as they should");
  }
  files_ += part.bytes();
  if (files_.size() < part.total_bytes()) {
    AskForFiles();
    return absl::OkStatus();
  }
  if (!offer_.files.ParseFromString(files_)) {
    return absl::InternalError("the files do not parse");
  }
  OnAsked(absl::OkStatus());
  return absl::OkStatus();
}

void HostWatch::OnAsked(const absl::Status& status) {
  if (!status.ok()) {
    LOG(WARNING) << "The host does not say what it offers, so reflection does "
                    "not either: "
                 << status;
  }
  files_.clear();
  front_.SetServing(offer_);
}

}  // namespace rpc_gateway
