#include "examples/window_host/call_logger.h"

#include <google/protobuf/descriptor.h>
#include <google/protobuf/message.h>

#include <chrono>
#include <utility>

#include "absl/time/time.h"
#include "base/logging.h"
#include "core/common/rpc/transport/server_controller.h"

namespace window_host {
namespace {

using Clock = std::chrono::steady_clock;
using rpc::transport::ServerController;

// Stands in for the transport's closure; deletes itself when it is run.
class LoggingClosure final : public google::protobuf::Closure {
 public:
  LoggingClosure(const google::protobuf::MethodDescriptor& method,
                 const ServerController& controller,
                 const google::protobuf::Message& request,
                 const google::protobuf::Message& response,
                 google::protobuf::Closure* done)
      : method_(method),
        controller_(controller),
        request_(request),
        response_(response),
        done_(done) {}

  void Run() override {
    const std::unique_ptr<LoggingClosure> self(this);
    const absl::Duration duration = absl::FromChrono(Clock::now() - start_);
    LOG(INFO) << controller_.peer() << ": " << method_.name() << " {"
              << request_.ShortDebugString() << "} " << Outcome() << " in "
              << absl::FormatDuration(duration);
    // Request, response and controller are gone after this.
    done_->Run();
  }

 private:
  std::string Outcome() const {
    if (!controller_.status().ok())
      return controller_.status().ToString();
    return "OK {" + response_.ShortDebugString() + "}";
  }

  const google::protobuf::MethodDescriptor& method_;
  const ServerController& controller_;
  const google::protobuf::Message& request_;
  const google::protobuf::Message& response_;
  google::protobuf::Closure* const done_;
  const Clock::time_point start_ = Clock::now();
};

}  // namespace

const google::protobuf::ServiceDescriptor* CallLogger::GetDescriptor() {
  return service_.GetDescriptor();
}

void CallLogger::CallMethod(const google::protobuf::MethodDescriptor* method,
                            google::protobuf::RpcController* controller,
                            const google::protobuf::Message* request,
                            google::protobuf::Message* response,
                            google::protobuf::Closure* done) {
  auto* const server_controller = static_cast<ServerController*>(controller);
  service_.CallMethod(method, controller, request, response,
                      new LoggingClosure(*method, *server_controller, *request,
                                         *response, done));
}

const google::protobuf::Message& CallLogger::GetRequestPrototype(
    const google::protobuf::MethodDescriptor* method) const {
  return service_.GetRequestPrototype(method);
}

const google::protobuf::Message& CallLogger::GetResponsePrototype(
    const google::protobuf::MethodDescriptor* method) const {
  return service_.GetResponsePrototype(method);
}

std::unique_ptr<torvane::AbstractStream> CallLogger::OpenStream(
    const google::protobuf::MethodDescriptor* method,
    torvane::StreamChannel channel) {
  return service_.OpenStream(method, std::move(channel));
}

}  // namespace window_host
