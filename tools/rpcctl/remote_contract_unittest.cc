// What is made of a server's files, and which are refused.

#include "tools/rpcctl/remote_contract.h"

#include <google/protobuf/duration.pb.h>

#include <string>
#include <vector>

#include "gmock/gmock.h"
#include "gtest/gtest.h"
#include "rpc/browser/browser_window.pb.h"
#include "rpc/status/server_status.pb.h"
#include "tools/rpcctl/json.h"

namespace rpcctl {
namespace {

using google::protobuf::FieldDescriptorProto;
using google::protobuf::FileDescriptor;
using google::protobuf::FileDescriptorProto;
using google::protobuf::FileDescriptorSet;
using ::testing::HasSubstr;

// The file after those that it imports.
void AddFile(const FileDescriptor& file, FileDescriptorSet& files) {
  for (const FileDescriptorProto& added : files.file()) {
    if (added.name() == file.name())
      return;
  }
  for (int i = 0; i < file.dependency_count(); ++i)
    AddFile(*file.dependency(i), files);
  file.CopyTo(files.add_file());
}

FileDescriptorSet FilesOf(const google::protobuf::ServiceDescriptor& service) {
  FileDescriptorSet files;
  AddFile(*service.file(), files);
  return files;
}

// A file with an empty message of that name.
FileDescriptorProto FileWith(const std::string& package,
                             const std::string& message) {
  FileDescriptorProto file;
  file.set_name("forged.proto");
  file.set_package(package);
  file.add_message_type()->set_name(message);
  return file;
}

absl::Status Fault(const FileDescriptorProto& file) {
  FileDescriptorSet files;
  *files.add_file() = file;
  return RemoteContract::Build(files, {}).status();
}

TEST(RemoteContractTest, ServicesAreThoseOfTheFilesThatAreNamed) {
  const auto contract = RemoteContract::Build(
      FilesOf(*rpc::BrowserWindow::descriptor()), {"rpc.BrowserWindow"});
  ASSERT_TRUE(contract.ok()) << contract.status();
  const Contract made = (*contract)->contract();
  ASSERT_EQ(1u, made.services.size());
  EXPECT_NE(rpc::BrowserWindow::descriptor(), made.services[0]);
  EXPECT_EQ(rpc::BrowserWindow::descriptor()->DebugString(),
            made.services[0]->DebugString());
}

TEST(RemoteContractTest, CommentsThatTheServerSendsAreKept) {
  FileDescriptorProto file = FileWith("zoo", "Animal");
  auto* location = file.mutable_source_code_info()->add_location();
  location->add_path(FileDescriptorProto::kMessageTypeFieldNumber);
  location->add_path(0);
  location->add_span(0);
  location->add_span(0);
  location->add_span(1);
  location->set_leading_comments(" It has a name.\n");
  FileDescriptorSet files;
  *files.add_file() = file;
  const auto contract = RemoteContract::Build(files, {});
  ASSERT_TRUE(contract.ok()) << contract.status();
  google::protobuf::SourceLocation found;
  ASSERT_TRUE((*contract)
                  ->contract()
                  .pool->FindMessageTypeByName("zoo.Animal")
                  ->GetSourceLocation(&found));
  EXPECT_EQ(" It has a name.\n", found.leading_comments);
}

// A duration is written as one, though its file has come from the server.
TEST(RemoteContractTest, MessagesAreReadAndPrintedAsJson) {
  const auto contract =
      RemoteContract::Build(FilesOf(*rpc::status::ServerStatus::descriptor()),
                            {"rpc.status.ServerStatus"});
  ASSERT_TRUE(contract.ok()) << contract.status();
  const Contract made = (*contract)->contract();
  const auto* type = made.pool->FindMessageTypeByName("rpc.status.Question");
  const std::unique_ptr<google::protobuf::Message> question(
      made.messages->GetPrototype(type)->New());
  const std::string json =
      R"({"method":"Ask","browserId":{"value":"7"},"age":"1.500s"})";
  EXPECT_TRUE(FromJson(json, question.get()).ok());
  EXPECT_EQ(json, ToJson(*question));
  rpc::status::Question parsed;
  EXPECT_TRUE(parsed.ParseFromString(question->SerializeAsString()));
  EXPECT_EQ(500'000'000, parsed.age().nanos());
}

TEST(RemoteContractTest, ServiceThatNoFileDeclaresIsNamed) {
  EXPECT_EQ(absl::InvalidArgumentError(
                "the server's files do not declare its service rpc.Other"),
            RemoteContract::Build(FilesOf(*rpc::BrowserWindow::descriptor()),
                                  {"rpc.BrowserWindow", "rpc.Other"})
                .status());
}

TEST(RemoteContractTest, FileWithoutItsImportsIsRefused) {
  FileDescriptorProto file;
  rpc::BrowserWindow::descriptor()->file()->CopyTo(&file);
  const absl::Status status = Fault(file);
  EXPECT_EQ(absl::StatusCode::kInvalidArgument, status.code());
  EXPECT_THAT(std::string(status.message()),
              HasSubstr("the server's file rpc/browser/browser_window.proto "
                        "can't be used: "));
  EXPECT_THAT(std::string(status.message()), HasSubstr("has not been loaded"));
}

TEST(RemoteContractTest, FileThatComesTwiceWithAnotherContentIsRefused) {
  FileDescriptorSet files;
  *files.add_file() = FileWith("a", "A");
  *files.add_file() = FileWith("a", "B");
  EXPECT_THAT(std::string(RemoteContract::Build(files, {}).status().message()),
              HasSubstr("A file with this name is already in the pool."));
}

TEST(RemoteContractTest, FaultyDeclarationsAreRefusedWithTheFirstFault) {
  FileDescriptorProto file = FileWith("a", "A");
  FieldDescriptorProto* field = file.mutable_message_type(0)->add_field();
  field->set_name("f");
  field->set_number(0);
  field->set_label(FieldDescriptorProto::LABEL_OPTIONAL);
  field->set_type(FieldDescriptorProto::TYPE_MESSAGE);
  field->set_type_name(".a.Missing");
  EXPECT_EQ(absl::InvalidArgumentError(
                "the server's file forged.proto can't be used: a.A.f: Field "
                "numbers must be positive integers."),
            Fault(file));
  field->set_number(1);
  EXPECT_EQ(absl::InvalidArgumentError(
                "the server's file forged.proto can't be used: a.A.f: "
                "\".a.Missing\" is not defined."),
            Fault(file));
}

// Protocol Buffers would take an empty file for it.
TEST(RemoteContractTest, ImportThatIsSaidNotToMatterIsNeededToo) {
  FileDescriptorProto file = FileWith("a", "A");
  file.add_dependency("missing.proto");
  file.add_weak_dependency(0);
  EXPECT_THAT(std::string(Fault(file).message()),
              HasSubstr("Import \"missing.proto\" has not been loaded."));
}

TEST(RemoteContractTest, NameThatIsNoIdentifierIsRefused) {
  EXPECT_THAT(std::string(Fault(FileWith("a", "\x1b[2J")).message()),
              HasSubstr("is not a valid identifier."));
}

// JSON of these types has a form of its own, for which their fields must be
// those that everybody knows.
TEST(RemoteContractTest, NamesOfProtocolBuffersAreNotTakenFromAServer) {
  const std::string fault =
      "the server's file forged.proto can't be used: it declares "
      "google.protobuf.Timestamp, which is not its own";
  EXPECT_EQ(absl::InvalidArgumentError(fault),
            Fault(FileWith("google.protobuf", "Timestamp")));
  FileDescriptorProto nested = FileWith("google", "outer");
  nested.mutable_message_type(0)->set_name("protobuf");
  nested.mutable_message_type(0)->add_nested_type()->set_name("Timestamp");
  EXPECT_EQ(absl::StatusCode::kInvalidArgument, Fault(nested).code());
  FileDescriptorProto deeper = FileWith("", "google");
  *deeper.mutable_message_type(0)->add_nested_type() = nested.message_type(0);
  EXPECT_EQ(absl::StatusCode::kInvalidArgument, Fault(deeper).code());
  EXPECT_TRUE(Fault(FileWith("google.protobufs", "Timestamp")).ok());
}

TEST(RemoteContractTest, FilesOfProtocolBuffersAreThoseOfThisProgram) {
  FileDescriptorProto file = FileWith("google.protobuf", "Duration");
  file.set_name("google/protobuf/duration.proto");
  FileDescriptorSet files;
  *files.add_file() = file;
  const auto contract = RemoteContract::Build(files, {});
  ASSERT_TRUE(contract.ok()) << contract.status();
  const auto* duration = (*contract)->contract().pool->FindMessageTypeByName(
      "google.protobuf.Duration");
  ASSERT_NE(nullptr, duration);
  EXPECT_EQ(google::protobuf::Duration::descriptor()->DebugString(),
            duration->DebugString());

  file.set_name("google/protobuf/forged.proto");
  EXPECT_EQ(absl::InvalidArgumentError(
                "the server's file google/protobuf/forged.proto can't be used: "
                "this program has no such file"),
            Fault(file));
}

}  // namespace
}  // namespace rpcctl
