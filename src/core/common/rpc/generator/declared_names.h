// Which C++ names a proto file and its imports declare, by namespace.
//
// Generated service code declares names of its own in the namespace of its file
// and in the global one, and uses names of the headers that it includes. The
// validator asks here whether the proto files declare one of these as well.
//
// Ownership: points to descriptors, which the pool owns. Sequence: any one.

#ifndef CORE_COMMON_RPC_GENERATOR_DECLARED_NAMES_H_
#define CORE_COMMON_RPC_GENERATOR_DECLARED_NAMES_H_

#include <google/protobuf/descriptor.h>

#include <set>
#include <string>
#include <utility>

namespace torvane::generator {

class DeclaredNames {
 public:
  // Collects the names of `file` and of everything that it imports, directly or
  // not, but not those of other files of its pool.
  explicit DeclaredNames(const google::protobuf::FileDescriptor& file);

  // Whether `package` has a declaration or a sub-package called `name`. An
  // empty `package` is the global namespace.
  bool Has(const std::string& package, const std::string& name) const;

  // Whether it has a declaration called `name`.
  bool HasDeclaration(const std::string& package,
                      const std::string& name) const;

  // Whether one of the files is in exactly this package.
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
