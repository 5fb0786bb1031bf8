#include "core/common/rpc/grpc/reflection/reflection_answers.h"

#include <gmock/gmock.h>
#include <google/protobuf/descriptor.pb.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "grpc/reflection/v1/reflection.pb.h"
#include "rpc/browser/browser_window.pb.h"

namespace rpc::grpc {
namespace {

using google::protobuf::FileDescriptor;
using google::protobuf::FileDescriptorProto;
using ::grpc::reflection::v1::ServerReflectionRequest;
using ::grpc::reflection::v1::ServerReflectionResponse;
using testing::ElementsAre;

void AddWithImports(const FileDescriptor& file, Offer& offer) {
  for (int i = 0; i < file.dependency_count(); ++i) {
    AddWithImports(*file.dependency(i), offer);
  }
  for (const FileDescriptorProto& added : offer.files.file()) {
    if (added.name() == file.name()) {
      return;
    }
  }
  file.CopyTo(offer.files.add_file());
}

Offer Windows() {
  Offer offer;
  offer.services = {"rpc.BrowserWindow"};
  AddWithImports(*CloseWindow::descriptor()->file(), offer);
  return offer;
}

ServerReflectionResponse Ask(const ReflectionAnswers& answers,
                             const ServerReflectionRequest& request) {
  ServerReflectionResponse response;
  const auto bytes = answers.Answer(request.SerializeAsString());
  EXPECT_TRUE(bytes.ok() && response.ParseFromString(*bytes));
  return response;
}

std::vector<std::string> FilesIn(const ServerReflectionResponse& response) {
  std::vector<std::string> names;
  for (const std::string& bytes :
       response.file_descriptor_response().file_descriptor_proto()) {
    FileDescriptorProto file;
    EXPECT_TRUE(file.ParseFromString(bytes));
    names.push_back(file.name());
  }
  return names;
}

TEST(ReflectionAnswers, ListTheServicesAndReflectionItself) {
  ServerReflectionRequest request;
  request.set_host("here");
  request.set_list_services("");
  const auto response = Ask(ReflectionAnswers(Windows()), request);
  EXPECT_EQ(response.valid_host(), "here");
  EXPECT_EQ(response.original_request().SerializeAsString(),
            request.SerializeAsString());
  std::vector<std::string> names;
  for (const auto& service : response.list_services_response().service()) {
    names.push_back(service.name());
  }
  EXPECT_THAT(names, ElementsAre("rpc.BrowserWindow",
                                 "grpc.reflection.v1.ServerReflection",
                                 "grpc.reflection.v1alpha.ServerReflection"));
}

TEST(ReflectionAnswers, AFileComesWithThoseThatItImports) {
  ServerReflectionRequest request;
  request.set_file_by_filename("rpc/event_subscription.proto");
  EXPECT_THAT(FilesIn(Ask(ReflectionAnswers(Windows()), request)),
              ElementsAre("rpc/event_subscription.proto", "browser_id.proto"));
}

TEST(ReflectionAnswers, ASymbolIsFoundInItsFile) {
  const ReflectionAnswers answers(Windows());
  for (const char* symbol :
       {"rpc.BrowserWindow", "rpc.BrowserWindow.GetTitle",
        "rpc.CloseWindow.Question", "rpc.CloseWindow.browser_id"}) {
    ServerReflectionRequest request;
    request.set_file_containing_symbol(symbol);
    EXPECT_EQ(FilesIn(Ask(answers, request)).at(0),
              "rpc/browser/browser_window.proto")
        << symbol;
  }
  for (const char* version : {"v1", "v1alpha"}) {
    ServerReflectionRequest request;
    request.set_file_containing_symbol(std::string("grpc.reflection.") +
                                       version + ".ServerReflection");
    EXPECT_THAT(FilesIn(Ask(answers, request)),
                ElementsAre(std::string("grpc/reflection/") + version +
                            "/reflection.proto"));
  }
}

TEST(ReflectionAnswers, TheContractIsThatForGrpcClients) {
  ServerReflectionRequest request;
  request.set_file_by_filename("rpc/browser/browser_window.proto");
  const auto response = Ask(ReflectionAnswers(Windows()), request);
  FileDescriptorProto file;
  ASSERT_TRUE(file.ParseFromString(
      response.file_descriptor_response().file_descriptor_proto(0)));
  EXPECT_FALSE(file.options().has_cc_generic_services());
  for (const auto& message : file.message_type()) {
    if (message.name() == "CloseWindow") {
      EXPECT_EQ(message.field(message.field_size() - 1).name(), "call_id");
      return;
    }
  }
  FAIL() << "there is no CloseWindow";
}

TEST(ReflectionAnswers, WhatIsNotThereIsNotFound) {
  const ReflectionAnswers answers(Windows());
  ServerReflectionRequest by_name;
  by_name.set_file_by_filename("nothing.proto");
  ServerReflectionRequest by_symbol;
  by_symbol.set_file_containing_symbol("rpc.Nothing");
  ServerReflectionRequest by_extension;
  by_extension.mutable_file_containing_extension()->set_containing_type(
      "rpc.CloseWindow");
  by_extension.mutable_file_containing_extension()->set_extension_number(100);
  ServerReflectionRequest by_type;
  by_type.set_all_extension_numbers_of_type("rpc.Nothing");
  for (const auto& [request, text] :
       {std::pair{by_name, "there is no file nothing.proto"},
        {by_symbol, "there is no symbol rpc.Nothing"},
        {by_extension, "there is no extension 100 of rpc.CloseWindow"},
        {by_type, "there is no message rpc.Nothing"}}) {
    const auto response = Ask(answers, request);
    EXPECT_EQ(response.error_response().error_code(), 5);
    EXPECT_EQ(response.error_response().error_message(), text);
  }
}

TEST(ReflectionAnswers, ExtensionsAreFound) {
  Offer offer;
  AddWithImports(*FileDescriptorProto::descriptor()->file(), offer);
  FileDescriptorProto& file = *offer.files.add_file();
  file.set_name("extension.proto");
  file.add_dependency("google/protobuf/descriptor.proto");
  auto& extension = *file.add_extension();
  extension.set_name("mine");
  extension.set_number(50'000);
  extension.set_type(google::protobuf::FieldDescriptorProto::TYPE_INT32);
  extension.set_label(google::protobuf::FieldDescriptorProto::LABEL_OPTIONAL);
  extension.set_extendee(".google.protobuf.FileOptions");
  const ReflectionAnswers answers(offer);

  ServerReflectionRequest numbers;
  numbers.set_all_extension_numbers_of_type("google.protobuf.FileOptions");
  const auto response = Ask(answers, numbers).all_extension_numbers_response();
  EXPECT_EQ(response.base_type_name(), "google.protobuf.FileOptions");
  EXPECT_THAT(response.extension_number(), ElementsAre(50'000));

  ServerReflectionRequest which;
  which.mutable_file_containing_extension()->set_containing_type(
      "google.protobuf.FileOptions");
  which.mutable_file_containing_extension()->set_extension_number(50'000);
  EXPECT_EQ(FilesIn(Ask(answers, which)).at(0), "extension.proto");
}

TEST(ReflectionAnswers, ARequestForNothingIsAnError) {
  EXPECT_EQ(Ask(ReflectionAnswers(Windows()), {}).error_response().error_code(),
            3);
}

TEST(ReflectionAnswers, ARequestThatDoesNotParseIsInvalid) {
  EXPECT_TRUE(absl::IsInvalidArgument(
      ReflectionAnswers(Windows()).Answer("\377").status()));
}

TEST(ReflectionAnswers, AFileThatCannotBeBuiltIsLeftOut) {
  Offer offer = Windows();
  FileDescriptorProto& file = *offer.files.add_file();
  file.set_name("broken.proto");
  file.add_dependency("missing.proto");
  const ReflectionAnswers answers(offer);
  ServerReflectionRequest broken;
  broken.set_file_by_filename("broken.proto");
  EXPECT_TRUE(Ask(answers, broken).has_error_response());
  ServerReflectionRequest whole;
  whole.set_file_by_filename("browser_id.proto");
  EXPECT_FALSE(Ask(answers, whole).has_error_response());
}

}  // namespace
}  // namespace rpc::grpc
