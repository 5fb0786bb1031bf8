// Writes the base class of one service.
//
// All type names in generated code begin with "::", so that a package, message
// or method of the same name cannot hide them.
//
// Ownership: none. Sequence: any one. Failure: none, since the file has been
// validated.

#ifndef CORE_COMMON_RPC_GENERATOR_SERVICE_WRITER_H_
#define CORE_COMMON_RPC_GENERATOR_SERVICE_WRITER_H_

#include <google/protobuf/descriptor.h>
#include <google/protobuf/io/printer.h>

#include <map>
#include <string>

#include "core/common/rpc/stream/method_kind.h"

namespace torvane::generator {

class ServiceWriter {
 public:
  // `service` and `printer` must outlive the writer. KindOf() must return a
  // kind for every method of the service.
  ServiceWriter(const google::protobuf::ServiceDescriptor& service,
                google::protobuf::io::Printer& printer);

  void WriteClassDeclaration();
  void WriteClassDefinition();

 private:
  using Method = google::protobuf::MethodDescriptor;

  void WriteDescriptorFunctions();
  void WriteCallMethod();
  void WritePrototypes();
  void WriteOpenStream();
  void WriteDefaultBodies();

  // Calls `write` for each method, or for each unary or each streaming one, in
  // the order of indices. Meanwhile Print() knows the method's names.
  template <typename Write>
  void ForEachMethod(Write write);
  template <typename Write>
  void ForEachUnary(Write write);
  template <typename Write>
  void ForEachStreaming(Write write);

  // Prints `text`, in which $variables$ stand for the names of the service and
  // of the current method.
  void Print(const char* text);

  const google::protobuf::ServiceDescriptor& service_;
  google::protobuf::io::Printer& printer_;
  std::map<std::string, std::string> names_;
  bool has_unary_ = false;
  bool has_streaming_ = false;
};

// The stream type that OpenStream makes for a streaming method.
std::string StreamClass(const google::protobuf::MethodDescriptor& method);

}  // namespace torvane::generator

#endif  // CORE_COMMON_RPC_GENERATOR_SERVICE_WRITER_H_
