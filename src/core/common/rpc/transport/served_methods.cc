#include "core/common/rpc/transport/served_methods.h"

#include "absl/log/absl_check.h"

namespace rpc::transport {
namespace {

using google::protobuf::Descriptor;
using google::protobuf::MethodDescriptor;

ServedMethod Describe(torvane::Service* service,
                      const MethodDescriptor* method) {
  ServedMethod served = {service, method,  MethodKind::kUnary,
                         nullptr, nullptr, nullptr};
  if (!method->client_streaming() && !method->server_streaming()) {
    return served;
  }
  served.kind = MethodKind::kOtherStream;
  const Descriptor* request = method->input_type();
  if (request->full_name() == "rpc.EventSubscription") {
    served.kind = MethodKind::kEvents;
  } else if (request == method->output_type()) {
    served.browser_id = request->FindFieldByName("browser_id");
    served.subscribe = request->FindFieldByName("subscribe");
    served.response = request->FindFieldByName("response");
  }
  if (served.browser_id && served.subscribe && served.response) {
    served.kind = MethodKind::kQuestions;
  }
  return served;
}

}  // namespace

void ServedMethods::Add(torvane::Service* service) {
  const google::protobuf::ServiceDescriptor* descriptor =
      service->GetDescriptor();
  for (const OfferedService& other : offer_) {
    ABSL_CHECK_NE(other.full_name(), descriptor->full_name())
        << "a server offers one service of a name";
  }
  OfferedService* offered = offer_.Add();
  offered->set_full_name(descriptor->full_name());
  for (int i = 0; i < descriptor->method_count(); ++i) {
    const ServedMethod method = Describe(service, descriptor->method(i));
    OfferedMethod* entry = offered->add_methods();
    entry->set_name(method.descriptor->name());
    entry->set_id(static_cast<uint32_t>(methods_.size()));
    entry->set_streaming(method.streaming());
    methods_.push_back(method);
  }
}

}  // namespace rpc::transport
