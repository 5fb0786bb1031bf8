// The C++ names of what a proto file declares.
//
// Message code and service code are compiled together, so the names of messages
// come from protobuf's own C++ generator. What it does not offer for use
// outside of it is made here by its rules.

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

// The method's name, or that name with an underscore appended where C++ or the
// service's base class claim it, or where it is or looks like a macro: without
// any lower-case letter.
std::string MethodFunction(const google::protobuf::MethodDescriptor& method);

// Whether `name` can't be used as an identifier in C++ as it stands, being a
// keyword or a well-known macro.
bool IsReservedWord(const std::string& name);

}  // namespace torvane::generator

#endif  // CORE_COMMON_RPC_GENERATOR_CPP_NAMES_H_
