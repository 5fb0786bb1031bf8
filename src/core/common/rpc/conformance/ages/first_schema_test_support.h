// The protocol as it was first published: what an old program writes, and what
// it reads in the messages of a newer one.
//
// It is loaded at run time from testdata/first, since one program cannot be
// compiled with two versions of a schema. Messages are given as protobuf's
// text.

#ifndef CORE_COMMON_RPC_CONFORMANCE_AGES_FIRST_SCHEMA_TEST_SUPPORT_H_
#define CORE_COMMON_RPC_CONFORMANCE_AGES_FIRST_SCHEMA_TEST_SUPPORT_H_

#include <google/protobuf/compiler/importer.h>
#include <google/protobuf/descriptor.h>
#include <google/protobuf/dynamic_message.h>
#include <google/protobuf/text_format.h>

#include <memory>
#include <string>

#include "absl/log/absl_check.h"

namespace rpc {

class FirstSchema {
 public:
  FirstSchema() {
    sources_.MapPath("", FIRST_VERSION);
    sources_.MapPath("", PROTOBUF_PROTO_ROOT);
  }

  const google::protobuf::FileDescriptor* File(const std::string& name) {
    const google::protobuf::FileDescriptor* file = importer_.Import(name);
    ABSL_CHECK(file != nullptr) << name;
    return file;
  }

  // The bytes that an old program makes of the message with these fields.
  std::string Write(const std::string& type, const std::string& fields) {
    const std::unique_ptr<google::protobuf::Message> message = New(type);
    ABSL_CHECK(
        google::protobuf::TextFormat::ParseFromString(fields, message.get()))
        << fields;
    return message->SerializeAsString();
  }

  // What an old program reads in these bytes.
  std::string Read(const std::string& type, const std::string& bytes) {
    const std::unique_ptr<google::protobuf::Message> message = New(type);
    ABSL_CHECK(message->ParseFromString(bytes)) << type;
    message->DiscardUnknownFields();
    return message->ShortDebugString();
  }

  std::string WriteFrame(const std::string& body) {
    const std::string frame = Write("rpc.transport.Frame", body);
    ABSL_CHECK_LT(frame.size(), 128u) << "its length takes more than a byte";
    return static_cast<char>(frame.size()) + frame;
  }

 private:
  std::unique_ptr<google::protobuf::Message> New(const std::string& type) {
    for (const char* file :
         {"rpc/transport/frame.proto", "rpc/status/server_status.proto",
          "rpc/browser/browser_window.proto"}) {
      File(file);
    }
    const google::protobuf::Descriptor* descriptor =
        importer_.pool()->FindMessageTypeByName(type);
    ABSL_CHECK(descriptor != nullptr) << type;
    return std::unique_ptr<google::protobuf::Message>(
        factory_.GetPrototype(descriptor)->New());
  }

  google::protobuf::compiler::DiskSourceTree sources_;
  google::protobuf::compiler::Importer importer_{&sources_, nullptr};
  google::protobuf::DynamicMessageFactory factory_;
};

}  // namespace rpc

#endif  // CORE_COMMON_RPC_CONFORMANCE_AGES_FIRST_SCHEMA_TEST_SUPPORT_H_
