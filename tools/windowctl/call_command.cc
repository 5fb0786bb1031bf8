#include <google/protobuf/message.h>

#include <memory>

#include "core/common/rpc/transport/client_controller.h"
#include "rpc/browser/browser_window.pb.h"
#include "tools/windowctl/commands.h"
#include "tools/windowctl/connect.h"
#include "tools/windowctl/json.h"
#include "tools/windowctl/method_table.h"

namespace windowctl {
namespace {

using google::protobuf::Message;
using google::protobuf::MessageFactory;

std::unique_ptr<Message> NewMessage(
    const google::protobuf::Descriptor* descriptor) {
  MessageFactory* const factory = MessageFactory::generated_factory();
  return std::unique_ptr<Message>(factory->GetPrototype(descriptor)->New());
}

}  // namespace

ExitCode Call(const Options& options, const Arguments& arguments) {
  if (arguments.size() != 2)
    return Fail(kUsage, "'call' takes a method and its request in JSON.");
  const auto method = FindMethod(*rpc::BrowserWindow::descriptor(),
                                 arguments[0], torvane::MethodKind::kUnary);
  if (!method.ok())
    return Fail(kUsage, method.status().message());
  const std::unique_ptr<Message> request = NewMessage((*method)->input_type());
  if (absl::Status json = FromJson(arguments[1], request.get()); !json.ok())
    return Fail(kUsage, json.message());

  rpc::loop::Loop loop;
  const Deadline deadline(loop, options);
  const auto client = Connect(loop, options);
  if (!client.ok())
    return Fail(kNoConnection, client.status().message());
  const std::unique_ptr<Message> response =
      NewMessage((*method)->output_type());
  rpc::transport::ClientController controller;
  controller.set_timeout(deadline.Left());
  (*client)->CallMethod(*method, &controller, request.get(), response.get(),
                        nullptr);
  if (!controller.status().ok())
    return FailOn(**client, controller.status());
  PrintLine(ToJson(*response));
  return kSuccess;
}

}  // namespace windowctl
