#include "examples/window_host/app/call_logger.h"

#include <google/protobuf/descriptor.h>
#include <google/protobuf/message.h>

#include <chrono>
#include <utility>

#include "absl/time/time.h"
#include "base/logging.h"
#include "core/common/rpc/serving/call_context.h"

namespace window_host {
namespace {

using Clock = std::chrono::steady_clock;
using rpc::serving::CallContext;

// Passed on in place of the transport's closure. Logs the call, runs that
// closure and deletes itself.
class LoggingClosure final : public google::protobuf::Closure {
 public:
  LoggingClosure(const google::protobuf::MethodDescriptor& method,
                 const CallContext& context,
                 const google::protobuf::Message& request,
                 const google::protobuf::Message& response,
                 google::protobuf::Closure* done)
      : method_(method),
        context_(context),
        request_(request),
        response_(response),
        done_(done) {}

  void Run() override {
    const std::unique_ptr<LoggingClosure> self(this);
    const absl::Duration duration = absl::FromChrono(Clock::now() - start_);
    LOG(INFO) << context_.peer() << ": " << method_.name() << " {"
              << request_.ShortDebugString() << "} " << Outcome() << " in "
              << absl::FormatDuration(duration);
    // The transport frees request, response and context within Run().
    done_->Run();
  }

 private:
  std::string Outcome() const {
    if (!context_.status().ok())
      return context_.status().ToString();
    return "OK {" + response_.ShortDebugString() + "}";
  }

  const google::protobuf::MethodDescriptor& method_;
  const CallContext& context_;
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
  service_.CallMethod(method, controller, request, response,
                      new LoggingClosure(*method, CallContext::Of(controller),
                                         *request, *response, done));
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
