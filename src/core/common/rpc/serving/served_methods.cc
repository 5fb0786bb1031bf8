#include "core/common/rpc/serving/served_methods.h"

#include "absl/log/absl_check.h"

namespace rpc::serving {

void ServedMethods::Add(torvane::Service* service) {
  const google::protobuf::ServiceDescriptor* descriptor =
      service->GetDescriptor();
  for (const ServedMethod& other : methods_) {
    ABSL_CHECK_NE(other.descriptor->service()->full_name(),
                  descriptor->full_name())
        << "a server offers one service of a name";
  }
  for (int i = 0; i < descriptor->method_count(); ++i) {
    const google::protobuf::MethodDescriptor* method = descriptor->method(i);
    ServedMethod& served = methods_.emplace_back();
    served.id = methods_.size() - 1;
    served.service = service;
    served.descriptor = method;
    served.kind = torvane::KindOf(*method);
    if (served.streaming()) {
      served.reader = std::make_unique<WindowMessageReader>(*service, *method);
    }
    if (served.kind == torvane::MethodKind::kEventStream) {
      served.subscribers = SubscribersTo(method->output_type());
    }
  }
}

std::shared_ptr<Subscribers> ServedMethods::SubscribersTo(
    const google::protobuf::Descriptor* event) const {
  for (const ServedMethod& method : methods_) {
    if (method.subscribers && method.descriptor->output_type() == event) {
      return method.subscribers;
    }
  }
  return std::make_shared<Subscribers>();
}

std::vector<const google::protobuf::ServiceDescriptor*>
ServedMethods::Services() const {
  std::vector<const google::protobuf::ServiceDescriptor*> services;
  for (const ServedMethod& method : methods_) {
    if (method.descriptor->index() == 0) {
      services.push_back(method.descriptor->service());
    }
  }
  return services;
}

}  // namespace rpc::serving
