#include "core/common/rpc/transport/served_methods.h"

#include "absl/log/absl_check.h"

namespace rpc::transport {

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
    const google::protobuf::MethodDescriptor* method = descriptor->method(i);
    const bool streaming =
        method->client_streaming() || method->server_streaming();
    OfferedMethod* entry = offered->add_methods();
    entry->set_name(method->name());
    entry->set_id(static_cast<uint32_t>(methods_.size()));
    entry->set_streaming(streaming);
    methods_.push_back({service, method, streaming});
  }
}

}  // namespace rpc::transport
