// Which C++ names a proto file and its imports declare, by namespace.
//
// Generated service code adds names of its own to the namespace of its file, to
// the global one, and uses those of the headers that it includes. This knows
// what is there already.

#ifndef CORE_COMMON_RPC_GENERATOR_DECLARED_NAMES_H_
#define CORE_COMMON_RPC_GENERATOR_DECLARED_NAMES_H_

#include <google/protobuf/descriptor.h>

#include <set>
#include <string>
#include <utility>

namespace torvane::generator {

class DeclaredNames {
 public:
  // Of `file` and everything that it imports, directly or not. What else its
  // pool holds does not count.
  explicit DeclaredNames(const google::protobuf::FileDescriptor& file);

  // Whether `package`, empty for none, has a declaration or a sub-package of
  // that name.
  bool Has(const std::string& package, const std::string& name) const;

  // The same without sub-packages.
  bool HasDeclaration(const std::string& package,
                      const std::string& name) const;

  // Whether one of the files is of exactly that package.
  bool HasPackage(const std::string& package) const;

 private:
  using Name = std::pair<std::string, std::string>;

  void AddFile(const google::protobuf::FileDescriptor& file);
  void AddPackage(const std::string& package);
  void AddMessage(const google::protobuf::Descriptor& message);
  void AddEnum(const google::protobuf::EnumDescriptor& enumeration);

  std::set<const google::protobuf::FileDescriptor*> files_;
  std::set<std::string> packages_;
  std::set<Name> declarations_;
  std::set<Name> sub_packages_;
};

}  // namespace torvane::generator

#endif  // CORE_COMMON_RPC_GENERATOR_DECLARED_NAMES_H_
