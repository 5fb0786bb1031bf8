#include "core/common/rpc/generator/validator.h"

#include <google/protobuf/descriptor.pb.h>

#include <map>
#include <sstream>
#include <utility>

#include "core/common/rpc/generator/cpp_names.h"
#include "core/common/rpc/generator/declared_names.h"
#include "core/common/rpc/stream/method_kind.h"

namespace torvane::generator {
namespace {

using google::protobuf::Descriptor;
using google::protobuf::FileDescriptor;
using google::protobuf::FileDescriptorProto;
using google::protobuf::FileOptions;
using google::protobuf::MethodDescriptor;
using google::protobuf::ServiceDescriptor;
using google::protobuf::SourceLocation;

// The error text for a method for which KindOf() returns nothing.
std::string WhyNoKind(const MethodDescriptor& method) {
  const std::string accepted =
      " Accepted are an event stream, (stream rpc.EventSubscription) returns "
      "(stream Event), and a callback stream, (stream T) returns (stream T), "
      "where T has a field 'BrowserId browser_id' and a oneof 'body' with "
      "'bool "
      "subscribe = 2' and a field 'response = 4', none of them deprecated.";
  if (!method.client_streaming() || !method.server_streaming()) {
    return "Streaming method '" + std::string(method.name()) +
           "' must stream on both sides." + accepted;
  }
  if (method.input_type() == method.output_type()) {
    return "'" + std::string(method.input_type()->full_name()) + "', which '" +
           std::string(method.name()) +
           "' streams both ways, is no callback message." + accepted;
  }
  return "Streaming method '" + std::string(method.name()) +
         "' is neither an event stream nor a callback stream." + accepted;
}

// Namespaces and global names of the headers that generated code includes.
constexpr const char* kForeignNamespaces[] = {
    "absl", "base", "google.protobuf.internal", "logging", "torvane"};
constexpr const char* kForeignNames[] = {"absl",    "base", "logging",
                                         "raw_ptr", "rpc",  "torvane"};

class Validator {
 public:
  explicit Validator(const FileDescriptor& file) : file_(file), names_(file) {}

  std::vector<std::string> Run() {
    if (file_.service_count() == 0)
      return {};
    CheckFile();
    CheckPackage();
    for (int i = 0; i < file_.service_count(); ++i)
      CheckService(*file_.service(i));
    return std::move(faults_);
  }

 private:
  void CheckFile() {
    if (file_.options().optimize_for() == FileOptions::LITE_RUNTIME) {
      Fault(file_,
            "Services need descriptors, which 'optimize_for = LITE_RUNTIME' "
            "leaves out.");
    }
    // Generated once for each file, not for each service.
    CheckFree(std::string(file_.package()), "AssignDescriptors");
    CheckFree("", "init_service_descriptors_flag");
    for (const char* name : kForeignNames) {
      if (names_.HasDeclaration("", name)) {
        Fault(file_, "'" + std::string(name) +
                         "', declared without a package here or in an import, "
                         "is a name of the headers that service code needs.");
      }
    }
  }

  void CheckPackage() {
    std::istringstream package{std::string(file_.package())};
    for (std::string part; std::getline(package, part, '.');) {
      if (IsReservedWord(part)) {
        FaultOfPackage("Package '" + std::string(file_.package()) +
                       "' can't be a C++ namespace: '" + part +
                       "' is reserved.");
      }
    }
    for (const char* foreign : kForeignNamespaces) {
      if (names_.HasPackage(foreign)) {
        FaultOfPackage("Package '" + std::string(foreign) +
                       "', of this file or of an import, is the namespace of "
                       "headers that service code needs.");
      }
    }
  }

  void CheckFree(const std::string& package, const std::string& name) {
    if (names_.Has(package, name)) {
      Fault(file_, "'" + name +
                       "', declared here or in an import, is a name of the "
                       "generated service code.");
    }
  }

  void CheckService(const ServiceDescriptor& service) {
    const std::string class_name = ServiceClass(service);
    if (names_.Has(std::string(file_.package()), class_name)) {
      Fault(service, "The class of service '" + std::string(service.name()) +
                         "' would be '" + class_name +
                         "', which is declared already.");
    }
    std::map<std::string, const MethodDescriptor*> functions;
    for (int i = 0; i < service.method_count(); ++i)
      CheckMethod(*service.method(i), functions);
  }

  void CheckMethod(const MethodDescriptor& method,
                   std::map<std::string, const MethodDescriptor*>& functions) {
    CheckType(method, *method.input_type());
    if (method.output_type() != method.input_type())
      CheckType(method, *method.output_type());
    if (!KindOf(method))
      Fault(method, WhyNoKind(method));
    const auto [other, is_new] =
        functions.emplace(MethodFunction(method), &method);
    if (!is_new) {
      Fault(method, "Methods '" + std::string(other->second->name()) +
                        "' and '" + std::string(method.name()) +
                        "' would both be '" + other->first + "' in C++.");
    }
  }

  void CheckType(const MethodDescriptor& method, const Descriptor& type) {
    if (type.options().map_entry()) {
      Fault(method, "'" + std::string(type.full_name()) +
                        "' is the entry of a map, which is no message of its "
                        "own in C++.");
    }
  }

  template <typename Declaration>
  void Fault(const Declaration& where, const std::string& message) {
    SourceLocation location;
    const bool is_known = where.GetSourceLocation(&location);
    AddFault(is_known ? &location : nullptr, message);
  }

  void FaultOfPackage(const std::string& message) {
    SourceLocation location;
    const bool is_known = file_.GetSourceLocation(
        {FileDescriptorProto::kPackageFieldNumber}, &location);
    AddFault(is_known ? &location : nullptr, message);
  }

  void AddFault(const SourceLocation* location, const std::string& message) {
    std::ostringstream line;
    line << file_.name() << ':';
    if (location) {
      line << location->start_line + 1 << ':' << location->start_column + 1
           << ':';
    }
    line << ' ' << message;
    faults_.push_back(line.str());
  }

  const FileDescriptor& file_;
  const DeclaredNames names_;
  std::vector<std::string> faults_;
};

}  // namespace

std::vector<std::string> Validate(const FileDescriptor& file) {
  return Validator(file).Run();
}

}  // namespace torvane::generator
