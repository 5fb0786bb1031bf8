// The C++ names of what a proto file declares.
//
// Service code refers to message code, so both must use the same names. They
// come from protobuf's own C++ generator where it exports a function for them;
// otherwise its rules are repeated here.
//
// Ownership: none. Sequence: any. Failure: none.

#ifndef CORE_COMMON_RPC_GENERATOR_CPP_NAMES_H_
#define CORE_COMMON_RPC_GENERATOR_CPP_NAMES_H_

#include <google/protobuf/descriptor.h>

#include <string>

namespace torvane::generator {

// "browser_window" of "browser_window.proto", folders included.
std::string FileStem(const google::protobuf::FileDescriptor& file);

// The path as an identifier, "/" as _2f, "_" as _5f and "." as _2e.
std::string FileIdentifier(const google::protobuf::FileDescriptor& file);

// The file's descriptor table, as protobuf's message code defines it.
std::string DescriptorTable(const google::protobuf::FileDescriptor& file);

// "foo::bar" for the package foo.bar, empty without a package.
std::string Namespace(const google::protobuf::FileDescriptor& file);

// "::foo::bar::Message".
std::string MessageClass(const google::protobuf::Descriptor& message);

// The service's name followed by Rpc.
std::string ServiceClass(const google::protobuf::ServiceDescriptor& service);

// The method's name. An underscore is appended if it is a C++ keyword, a member
// of the service's base class, or a macro; a name without any lower-case letter
// counts as a macro.
std::string MethodFunction(const google::protobuf::MethodDescriptor& method);

// Whether `name` can't be used as an identifier in C++, because it is a keyword
// or a well-known macro.
bool IsReservedWord(const std::string& name);

}  // namespace torvane::generator

#endif  // CORE_COMMON_RPC_GENERATOR_CPP_NAMES_H_
