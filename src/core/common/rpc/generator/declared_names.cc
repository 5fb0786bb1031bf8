#include "core/common/rpc/generator/declared_names.h"

#include <google/protobuf/compiler/cpp/names.h>
#include <google/protobuf/descriptor.pb.h>

namespace torvane::generator {

namespace cpp = google::protobuf::compiler::cpp;
using google::protobuf::Descriptor;
using google::protobuf::EnumDescriptor;
using google::protobuf::FileDescriptor;

DeclaredNames::DeclaredNames(const FileDescriptor& file) {
  AddFile(file);
}

bool DeclaredNames::Has(const std::string& package,
                        const std::string& name) const {
  return HasDeclaration(package, name) ||
         sub_packages_.contains({package, name});
}

bool DeclaredNames::HasDeclaration(const std::string& package,
                                   const std::string& name) const {
  return declarations_.contains({package, name});
}

bool DeclaredNames::HasPackage(const std::string& package) const {
  return packages_.contains(package);
}

void DeclaredNames::AddFile(const FileDescriptor& file) {
  if (!files_.insert(&file).second)
    return;
  const std::string package(file.package());
  AddPackage(package);
  for (int i = 0; i < file.message_type_count(); ++i)
    AddMessage(*file.message_type(i));
  for (int i = 0; i < file.enum_type_count(); ++i)
    AddEnum(*file.enum_type(i));
  for (int i = 0; i < file.extension_count(); ++i)
    declarations_.emplace(package, file.extension(i)->name());
  if (file.options().cc_generic_services()) {
    for (int i = 0; i < file.service_count(); ++i) {
      declarations_.emplace(package, file.service(i)->name());
      declarations_.emplace(package,
                            std::string(file.service(i)->name()) + "_Stub");
    }
  }
  for (int i = 0; i < file.dependency_count(); ++i)
    AddFile(*file.dependency(i));
}

// For the package a.b: "b" in "a", and "a" in the global namespace.
void DeclaredNames::AddPackage(const std::string& package) {
  packages_.insert(package);
  std::string rest = package;
  while (!rest.empty()) {
    const size_t dot = rest.rfind('.');
    const bool is_first = dot == rest.npos;
    sub_packages_.emplace(is_first ? "" : rest.substr(0, dot),
                          is_first ? rest : rest.substr(dot + 1));
    rest.resize(is_first ? 0 : dot);
  }
}

// protobuf's C++ code declares nested types in the package, as Outer_Inner.
void DeclaredNames::AddMessage(const Descriptor& message) {
  declarations_.emplace(message.file()->package(), cpp::ClassName(&message));
  for (int i = 0; i < message.nested_type_count(); ++i)
    AddMessage(*message.nested_type(i));
  for (int i = 0; i < message.enum_type_count(); ++i)
    AddEnum(*message.enum_type(i));
}

void DeclaredNames::AddEnum(const EnumDescriptor& enumeration) {
  const std::string package(enumeration.file()->package());
  const std::string class_name = cpp::ClassName(&enumeration);
  declarations_.emplace(package, class_name);
  const std::string prefix =
      enumeration.containing_type() ? class_name + "_" : "";
  for (int i = 0; i < enumeration.value_count(); ++i) {
    declarations_.emplace(package,
                          prefix + cpp::EnumValueName(enumeration.value(i)));
  }
}

}  // namespace torvane::generator
