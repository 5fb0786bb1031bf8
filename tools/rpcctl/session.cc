#include "tools/rpcctl/session.h"

#include <string>
#include <utility>

#include "absl/strings/str_cat.h"
#include "core/common/rpc/transport/client_controller.h"
#include "tools/cli/printable.h"
#include "tools/cli/socket_path.h"
#include "tools/rpcctl/commands.h"
#include "tools/rpcctl/reflection.h"

namespace rpcctl {
namespace {

using google::protobuf::Message;
using google::protobuf::MessageFactory;
using google::protobuf::MethodDescriptor;
using rpc::transport::Client;

ExitCode NoConnection(const absl::Status& why, std::string_view hint) {
  return Fail(
      kNoConnection,
      absl::StrCat("No connection: ", cli::Printable(why.message()), hint));
}

}  // namespace

rpc::transport::ClientOptions ClientOptionsFor(const Options& options) {
  rpc::transport::ClientOptions client_options;
  client_options.name = std::string(ProgramName());
  client_options.limits.handshake_timeout = options.timeout;
  return client_options;
}

// A lost connection ends calls and streams with the same status as the client.
ExitCode FailOn(const Client& client, const absl::Status& status) {
  return Fail(status == client.status() ? kNoConnection : kCallFailed, status);
}

Session::Session(const Program& program, const Options& options)
    : program_(program),
      options_(options),
      end_(loop_.Now() + options.timeout) {}

Session::~Session() = default;

ExitCode Session::Connect() {
  if (client_)
    return kSuccess;
  if (absl::Status folder = cli::CheckSocketFolder(options_.socket);
      !folder.ok()) {
    return Fail(kNoConnection, folder.message());
  }
  auto connected = Client::OpenSocket(options_.socket);
  if (!connected.ok()) {
    return NoConnection(connected.status(),
                        absl::IsUnavailable(connected.status())
                            ? program_.absent_server_hint
                            : "");
  }
  auto client =
      Client::Adopt(loop_, *std::move(connected), ClientOptionsFor(options_));
  // Without the hint to start a server: there is one, and it has said why it
  // does not serve us.
  if (!client.ok())
    return NoConnection(client.status(), "");
  client_ = *std::move(client);
  return kSuccess;
}

ExitCode Session::LoadContract() {
  if (!program_.services.empty()) {
    contract_ = {program_.services, program_.services[0]->file()->pool(),
                 MessageFactory::generated_factory()};
    return kSuccess;
  }
  if (ExitCode fault = Connect(); fault != kSuccess)
    return fault;
  auto fetched = FetchContract(*this);
  if (!fetched.ok())
    return FailOn(*client_, fetched.status());
  remote_contract_ = *std::move(fetched);
  contract_ = remote_contract_->contract();
  return kSuccess;
}

ExitCode Session::FindMethod(std::string_view name,
                             torvane::MethodKind kind,
                             const MethodDescriptor** method) {
  if (ExitCode fault = LoadContract(); fault != kSuccess)
    return fault;
  const auto found =
      rpcctl::FindMethod(contract_.services, name, kind, program_.forms);
  if (!found.ok())
    return Fail(kUsage, found.status().message());
  *method = *found;
  return kSuccess;
}

const google::protobuf::DescriptorPool& Session::declarations() const {
  return program_.commented != nullptr ? *program_.commented : *contract_.pool;
}

std::unique_ptr<Message> Session::NewMessage(
    const google::protobuf::Descriptor* type) const {
  return std::unique_ptr<Message>(
      contract_.messages->GetPrototype(type)->New());
}

absl::Status Session::Call(const MethodDescriptor* method,
                           const Message& request,
                           Message* response) {
  rpc::transport::ClientController controller;
  controller.set_timeout(TimeLeft());
  client_->CallMethod(method, &controller, &request, response, nullptr);
  return controller.status();
}

void Session::RestartTimeout() {
  end_ = loop_.Now() + options_.timeout;
}

std::chrono::milliseconds Session::TimeLeft() const {
  return std::chrono::floor<std::chrono::milliseconds>(end_ - loop_.Now());
}

}  // namespace rpcctl
