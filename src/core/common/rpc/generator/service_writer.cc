#include "core/common/rpc/generator/service_writer.h"

#include "core/common/rpc/generator/cpp_names.h"

namespace torvane::generator {

std::string StreamClass(const google::protobuf::MethodDescriptor& method) {
  const char* stream = KindOf(method) == MethodKind::kEventStream
                           ? "::torvane::EventStream<"
                           : "::torvane::CallbackStream<";
  return stream + MessageClass(*method.output_type()) + ">";
}

ServiceWriter::ServiceWriter(const google::protobuf::ServiceDescriptor& service,
                             google::protobuf::io::Printer& printer)
    : service_(service), printer_(printer) {
  const bool has_package = !service.file()->package().empty();
  names_["class"] = ServiceClass(service);
  names_["service"] = service.full_name();
  names_["service_index"] = std::to_string(service.index());
  names_["scope"] = has_package ? "::" + Namespace(*service.file()) : "";
  names_["id"] = FileIdentifier(*service.file());
  names_["table"] = DescriptorTable(*service.file());
  for (int i = 0; i < service.method_count(); ++i) {
    if (KindOf(*service.method(i)) == MethodKind::kUnary)
      has_unary_ = true;
    else
      has_streaming_ = true;
  }
}

void ServiceWriter::WriteClassDeclaration() {
  Print(R"(
// Base class of the service $service$.
//
// A subclass overrides the methods that it implements; every other unary method
// fails the call with a text that names it. All operations of this class may
// run on any thread, except OpenStream, which runs on the one sequence of the
// service's streams.
class $class$ : public ::torvane::Service {
 public:
  $class$() = default;
  ~$class$() override;

  // The service's descriptor. No object is needed to ask for it.
  static const ::google::protobuf::ServiceDescriptor* descriptor();

  // ::torvane::Service:
  const ::google::protobuf::ServiceDescriptor* GetDescriptor() override;
  void CallMethod(const ::google::protobuf::MethodDescriptor* method,
                  ::google::protobuf::RpcController* controller,
                  const ::google::protobuf::Message* request,
                  ::google::protobuf::Message* response,
                  ::google::protobuf::Closure* done) override;
  const ::google::protobuf::Message& GetRequestPrototype(
      const ::google::protobuf::MethodDescriptor* method) const override;
  const ::google::protobuf::Message& GetResponsePrototype(
      const ::google::protobuf::MethodDescriptor* method) const override;
  ::std::unique_ptr<::torvane::AbstractStream> OpenStream(
      const ::google::protobuf::MethodDescriptor* method,
      ::torvane::StreamChannel channel) override;
)");
  if (has_unary_) {
    Print(R"(
  // Unary methods. Each fills the response or fails the call through the
  // controller, and then runs `done`, now or later.
)");
  }
  ForEachUnary([this](const Method&) {
    Print(R"(  virtual void $function$(
      ::google::protobuf::RpcController* controller,
      const $request$* request,
      $response$* response,
      ::google::protobuf::Closure* done);
)");
  });
  if (has_streaming_) {
    Print(R"(
  // Streaming methods. OpenStream serves them; it calls none of these.
)");
  }
  ForEachStreaming(
      [this](const Method&) { Print("  virtual void $function$();\n"); });
  Print("};\n");
}

void ServiceWriter::WriteClassDefinition() {
  Print("\n$class$::~$class$() = default;\n");
  WriteDescriptorFunctions();
  WriteCallMethod();
  WritePrototypes();
  WriteOpenStream();
  WriteDefaultBodies();
}

void ServiceWriter::WriteDescriptorFunctions() {
  for (const char* signature :
       {"$class$::descriptor() {\n", "$class$::GetDescriptor() {\n"}) {
    Print("\nconst ::google::protobuf::ServiceDescriptor* ");
    Print(signature);
    Print(R"(  ::google::protobuf::internal::AssignDescriptors(&::$table$);
  ::std::call_once(::init_service_descriptors_flag, &$scope$::AssignDescriptors);
  return ::file_level_service_descriptors_$id$[$service_index$];
}
)");
  }
}

// The generated code logs fatal records after the switch, through `refuse`.
// With the records inside the switch, every call would set up their stack
// frame.
void ServiceWriter::WriteCallMethod() {
  Print(has_unary_ ? R"(
void $class$::CallMethod(const ::google::protobuf::MethodDescriptor* method,
    ::google::protobuf::RpcController* controller,
    const ::google::protobuf::Message* request,
    ::google::protobuf::Message* response,
    ::google::protobuf::Closure* done) {
  void (*refuse)();
  switch (method->index()) {
)"
                   : R"(
void $class$::CallMethod(const ::google::protobuf::MethodDescriptor* method,
    ::google::protobuf::RpcController*,
    const ::google::protobuf::Message*,
    ::google::protobuf::Message*,
    ::google::protobuf::Closure*) {
  void (*refuse)();
  switch (method->index()) {
)");
  ForEachMethod([this](const Method& method) {
    if (KindOf(method) == MethodKind::kUnary) {
      Print(R"(    case $index$:
      this->$function$(controller,
          static_cast<const $request$*>(request),
          static_cast<$response$*>(response),
          done);
      return;
)");
    } else {
      Print(R"(    case $index$:  // $method$
      refuse = [] {
        ABSL_LOG(FATAL) << "Streaming method can't be called with this call.";
      };
      break;
)");
    }
  });
  Print(R"(    default:
      refuse = [] {
        ABSL_LOG(FATAL) << "Bad method index; this should never happen.";
      };
      break;
  }
  refuse();
}
)");
}

void ServiceWriter::WritePrototypes() {
  struct {
    const char* operation;
    const char* type;
  } const sides[] = {{"GetRequestPrototype", "request"},
                     {"GetResponsePrototype", "response"}};
  for (const auto& side : sides) {
    names_["operation"] = side.operation;
    Print(R"(
const ::google::protobuf::Message& $class$::$operation$(
    const ::google::protobuf::MethodDescriptor* method) const {
  switch (method->index()) {
)");
    ForEachMethod([&](const Method&) {
      names_["prototype"] = names_[side.type];
      Print(R"(    case $index$:  // $method$
      return $prototype$::default_instance();
)");
    });
    Print(R"(    default:
      ABSL_LOG(FATAL) << "Bad method index; this should never happen.";
  }
}
)");
  }
}

void ServiceWriter::WriteOpenStream() {
  Print(has_streaming_ ? R"(
::std::unique_ptr<::torvane::AbstractStream> $class$::OpenStream(
    const ::google::protobuf::MethodDescriptor* method,
    ::torvane::StreamChannel channel) {
  switch (method->index()) {
)"
                       : R"(
::std::unique_ptr<::torvane::AbstractStream> $class$::OpenStream(
    const ::google::protobuf::MethodDescriptor* method,
    ::torvane::StreamChannel) {
  switch (method->index()) {
)");
  ForEachMethod([this](const Method& method) {
    if (KindOf(method) == MethodKind::kUnary) {
      Print(R"(    case $index$:  // $method$
      ABSL_LOG(FATAL) << "Cannot open a stream for a non-streaming method.";
)");
      return;
    }
    names_["stream"] = StreamClass(method);
    Print(R"(    case $index$:  // $method$
      return ::std::make_unique<$stream$>(
          this, method, ::std::move(channel));
)");
  });
  Print(R"(    default:
      ABSL_LOG(FATAL) << "Bad method index; this should never happen.";
  }
}
)");
}

void ServiceWriter::WriteDefaultBodies() {
  ForEachUnary([this](const Method&) {
    Print(R"(
void $class$::$function$(
    ::google::protobuf::RpcController* controller,
    const $request$*,
    $response$*,
    ::google::protobuf::Closure* done) {
  controller->SetFailed("Method $method$() not implemented.");
  done->Run();
}
)");
  });
  ForEachStreaming([this](const Method&) {
    Print(R"(
void $class$::$function$() {
  ABSL_LOG(FATAL) << "Not implemented.";
}
)");
  });
}

template <typename Write>
void ServiceWriter::ForEachMethod(Write write) {
  for (int i = 0; i < service_.method_count(); ++i) {
    const Method& method = *service_.method(i);
    names_["index"] = std::to_string(i);
    names_["method"] = method.name();
    names_["function"] = MethodFunction(method);
    names_["request"] = MessageClass(*method.input_type());
    names_["response"] = MessageClass(*method.output_type());
    write(method);
  }
}

template <typename Write>
void ServiceWriter::ForEachUnary(Write write) {
  ForEachMethod([&](const Method& method) {
    if (KindOf(method) == MethodKind::kUnary)
      write(method);
  });
}

template <typename Write>
void ServiceWriter::ForEachStreaming(Write write) {
  ForEachMethod([&](const Method& method) {
    if (KindOf(method) != MethodKind::kUnary)
      write(method);
  });
}

void ServiceWriter::Print(const char* text) {
  printer_.Print(names_, text);
}

}  // namespace torvane::generator
