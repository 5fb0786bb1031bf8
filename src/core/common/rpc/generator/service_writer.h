// Writes the base class of one service.
//
// The templates in the source read like the code that they make. All type names
// in generated code begin with "::", so that no package, message or method of
// any name can capture them.

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
  // `service` and `printer` must outlive the writer. Every method of the
  // service has a kind.
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
  // order of their indices, with the method's names as variables.
  template <typename Write>
  void ForEachMethod(Write write);
  template <typename Write>
  void ForEachUnary(Write write);
  template <typename Write>
  void ForEachStreaming(Write write);

  // Prints `text` with the service's and the current method's names.
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
