#include "core/common/rpc/generator/validator.h"

#include <google/protobuf/compiler/cpp/names.h>
#include <google/protobuf/descriptor.pb.h>

#include <map>
#include <sstream>
#include <utility>

#include "core/common/rpc/generator/cpp_names.h"
#include "core/common/rpc/generator/method_kind.h"

namespace torvane::generator {
namespace {

namespace compiler = google::protobuf::compiler;
using google::protobuf::Descriptor;
using google::protobuf::FileDescriptor;
using google::protobuf::FileOptions;
using google::protobuf::MethodDescriptor;
using google::protobuf::ServiceDescriptor;
using google::protobuf::SourceLocation;

class Validator {
 public:
  explicit Validator(const FileDescriptor& file) : file_(file) {}

  std::vector<std::string> Run() {
    if (file_.service_count() == 0)
      return {};
    CheckFile();
    for (int i = 0; i < file_.service_count(); ++i)
      CheckService(*file_.service(i));
    return std::move(faults_);
  }

 private:
  void CheckFile() {
    if (file_.options().optimize_for() == FileOptions::LITE_RUNTIME) {
      Fault(
          "Services need descriptors, which 'optimize_for = LITE_RUNTIME' "
          "leaves out.");
    }
    std::istringstream package(file_.package());
    for (std::string part; std::getline(package, part, '.');) {
      if (IsReservedWord(part)) {
        Fault("Package '" + file_.package() + "' can't be a C++ namespace: '" +
              part + "' is reserved.");
      }
    }
    for (const char* name :
         {"AssignDescriptors", "init_service_descriptors_flag"}) {
      if (IsDeclared(name)) {
        Fault("'" + std::string(name) +
              "' is a name of the generated service code; rename the "
              "declaration.");
      }
    }
  }

  void CheckService(const ServiceDescriptor& service) {
    const std::string class_name = ServiceClass(service);
    if (IsDeclared(class_name)) {
      Fault(service, "The class of service '" + service.name() +
                         "' would be '" + class_name +
                         "', which is declared already.");
    }
    std::map<std::string, const MethodDescriptor*> functions;
    for (int i = 0; i < service.method_count(); ++i)
      CheckMethod(*service.method(i), functions);
  }

  void CheckMethod(const MethodDescriptor& method,
                   std::map<std::string, const MethodDescriptor*>& functions) {
    if (!KindOf(method))
      Fault(method, WhyNoKind(method));
    const auto [other, is_new] =
        functions.emplace(MethodFunction(method), &method);
    if (!is_new) {
      Fault(method, "Methods '" + other->second->name() + "' and '" +
                        method.name() + "' would both be '" + other->first +
                        "' in C++.");
    }
  }

  // Whether C++ code of the file's package already has a declaration of that
  // name.
  bool IsDeclared(const std::string& name) const {
    const std::string full_name =
        file_.package().empty() ? name : file_.package() + "." + name;
    const google::protobuf::DescriptorPool& pool = *file_.pool();
    return pool.FindMessageTypeByName(full_name) ||
           pool.FindEnumTypeByName(full_name) ||
           pool.FindEnumValueByName(full_name) ||
           pool.FindExtensionByName(full_name) ||
           pool.FindServiceByName(full_name) || IsNestedClass(name);
  }

  // Nested messages and enums become classes of the package, Outer_Inner.
  bool IsNestedClass(const std::string& name) const {
    for (int i = 0; i < file_.message_type_count(); ++i) {
      if (HasNestedClass(*file_.message_type(i), name))
        return true;
    }
    return false;
  }

  static bool HasNestedClass(const Descriptor& message,
                             const std::string& name) {
    for (int i = 0; i < message.enum_type_count(); ++i) {
      if (compiler::cpp::ClassName(message.enum_type(i)) == name)
        return true;
    }
    for (int i = 0; i < message.nested_type_count(); ++i) {
      const Descriptor& nested = *message.nested_type(i);
      if (compiler::cpp::ClassName(&nested) == name ||
          HasNestedClass(nested, name)) {
        return true;
      }
    }
    return false;
  }

  template <typename Declaration>
  void Fault(const Declaration& where, const std::string& message) {
    SourceLocation location;
    std::ostringstream line;
    line << file_.name() << ':';
    if (where.GetSourceLocation(&location)) {
      line << location.start_line + 1 << ':' << location.start_column + 1
           << ':';
    }
    line << ' ' << message;
    faults_.push_back(line.str());
  }

  void Fault(const std::string& message) { Fault(file_, message); }

  const FileDescriptor& file_;
  std::vector<std::string> faults_;
};

}  // namespace

std::vector<std::string> Validate(const FileDescriptor& file) {
  return Validator(file).Run();
}

}  // namespace torvane::generator
