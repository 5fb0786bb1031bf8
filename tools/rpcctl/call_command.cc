#include <google/protobuf/message.h>

#include <memory>

#include "tools/rpcctl/commands.h"
#include "tools/rpcctl/json.h"
#include "tools/rpcctl/request.h"
#include "tools/rpcctl/session.h"

namespace rpcctl {

using google::protobuf::Message;

ExitCode Call(Session& session, const Arguments& arguments) {
  if (arguments.size() < 2)
    return Fail(kUsage, "'call' takes a method and its request.");
  const google::protobuf::MethodDescriptor* method;
  if (ExitCode fault = session.FindMethod(arguments[0],
                                          torvane::MethodKind::kUnary, &method);
      fault != kSuccess) {
    return fault;
  }
  const std::unique_ptr<Message> request =
      session.NewMessage(method->input_type());
  if (absl::Status fault =
          ReadRequest({arguments.begin() + 1, arguments.end()}, request.get());
      !fault.ok()) {
    return Fail(kUsage, fault.message());
  }
  return CallMethod(session, *method, *request, [](const Message& response) {
    PrintLine(ToJson(response));
  });
}

ExitCode CallMethod(Session& session,
                    const google::protobuf::MethodDescriptor& method,
                    const Message& request,
                    const std::function<void(const Message&)>& print) {
  if (ExitCode fault = session.Connect(); fault != kSuccess)
    return fault;
  const std::unique_ptr<Message> response =
      session.NewMessage(method.output_type());
  const absl::Status status = session.Call(&method, request, response.get());
  if (!status.ok())
    return FailOn(session.client(), status);
  print(*response);
  return kSuccess;
}

}  // namespace rpcctl
