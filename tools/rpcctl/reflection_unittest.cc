// What is taken from a server that says false things of itself.

#include "tools/rpcctl/reflection.h"

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "absl/strings/str_cat.h"
#include "core/common/rpc/reflection/reflection_service.h"
#include "core/common/rpc/testing/private_folder.h"
#include "core/common/rpc/transport/server.h"
#include "core/common/rpc/transport/testing/lab.h"
#include "gmock/gmock.h"
#include "gtest/gtest.h"
#include "rpc/reflection/server_reflection.rpc.h"
#include "tools/rpcctl/session.h"

namespace rpcctl {
namespace {

using google::protobuf::Closure;
using google::protobuf::RpcController;
using rpc::reflection::FilesPart;
using rpc::reflection::FilesRequest;
using rpc::reflection::ServiceList;

// Says what the test has it say.
class FalseReflection final : public rpc::reflection::ServerReflectionRpc {
 public:
  void ListServices(RpcController*,
                    const rpc::reflection::ListServicesRequest*,
                    ServiceList* response,
                    Closure* done) override {
    *response = services;
    done->Run();
  }
  void GetFiles(RpcController*,
                const FilesRequest* request,
                FilesPart* response,
                Closure* done) override {
    *response = get_part(request->offset());
    done->Run();
  }

  ServiceList services;
  std::function<FilesPart(uint64_t offset)> get_part;
};

// The server runs on the loop of the client.
class ReflectionTest : public ::testing::Test {
 protected:
  ReflectionTest() { options_.socket = folder_.File("server.sock"); }

  void Serve(torvane::Service& service) {
    server_.AddService(&service);
    ASSERT_TRUE(server_.Listen(options_.socket).ok());
    ASSERT_EQ(kSuccess, session_.Connect());
  }

  const torvane::PrivateFolder folder_;
  const Program program_{};
  Options options_;
  FalseReflection reflection_;
  Session session_{program_, options_};
  rpc::transport::Server server_{session_.loop()};
};

class FalseReflectionTest : public ReflectionTest {
 protected:
  FalseReflectionTest() { Serve(reflection_); }

  absl::Status Fault() { return FetchContract(session_).status(); }

  static FilesPart Part(uint64_t total_bytes, const std::string& bytes) {
    FilesPart part;
    part.set_total_bytes(total_bytes);
    part.set_bytes(bytes);
    return part;
  }
};

// It is put together from parts of one byte, too.
TEST_F(FalseReflectionTest, FilesInPartsOfAnyLengthAreTaken) {
  google::protobuf::FileDescriptorSet files;
  files.add_file()->set_name("a.proto");
  files.mutable_file(0)->add_service()->set_name("A");
  const std::string bytes = files.SerializeAsString();
  reflection_.services.add_services("A");
  reflection_.get_part = [&](uint64_t offset) {
    return Part(bytes.size(), bytes.substr(offset, 1));
  };
  const auto contract = FetchContract(session_);
  ASSERT_TRUE(contract.ok()) << contract.status();
  EXPECT_EQ("A", (*contract)->contract().services[0]->full_name());
}

TEST_F(FalseReflectionTest, ServerThatOffersNothingHasAnEmptyContract) {
  reflection_.get_part = [](uint64_t) { return FilesPart(); };
  const auto contract = FetchContract(session_);
  ASSERT_TRUE(contract.ok()) << contract.status();
  EXPECT_TRUE((*contract)->contract().services.empty());
}

// A file of that many bytes as a field that nobody knows.
std::string UnknownField(uint64_t bytes) {
  std::string field("\x7a", 1);  // field 15, by length, which takes four bytes
  uint64_t length = bytes - 5;
  for (int i = 0; i < 4; ++i, length >>= 7)
    field.push_back(static_cast<char>((length & 0x7f) | (i < 3 ? 0x80 : 0)));
  return field + std::string(bytes - 5, 'x');
}

TEST_F(FalseReflectionTest, FilesAreTakenUpToALimitAndNoFurther) {
  const std::string most = UnknownField(kMaxFilesBytes);
  ASSERT_EQ(kMaxFilesBytes, most.size());
  reflection_.get_part = [&](uint64_t offset) {
    return Part(most.size(), most.substr(offset, 1 << 20));
  };
  EXPECT_EQ(absl::OkStatus(), Fault());
  reflection_.get_part = [](uint64_t) { return Part(kMaxFilesBytes + 1, "x"); };
  EXPECT_EQ(absl::ResourceExhaustedError(
                "the server's files have 4194305 bytes, more than 4194304"),
            Fault());
}

TEST_F(FalseReflectionTest, PartsThatContradictTheTotalAreRefused) {
  const absl::Status fault = absl::InternalError(
      "the server's files have not as many bytes as it says");
  reflection_.get_part = [](uint64_t) { return Part(0, "x"); };
  EXPECT_EQ(fault, Fault());
  reflection_.get_part = [](uint64_t) { return Part(10, ""); };
  EXPECT_EQ(fault, Fault());
  reflection_.get_part = [](uint64_t) { return Part(10, "12345678901"); };
  EXPECT_EQ(fault, Fault());
  reflection_.get_part = [](uint64_t) { return Part(10, "1234567"); };
  EXPECT_EQ(fault, Fault());
  // A total that grows with each part would never be reached, and one that
  // shrinks would lie behind.
  reflection_.get_part = [](uint64_t offset) { return Part(offset + 2, "x"); };
  EXPECT_EQ(fault, Fault());
  reflection_.get_part = [](uint64_t offset) {
    return offset == 0 ? Part(10, "12345") : Part(4, "x");
  };
  EXPECT_EQ(fault, Fault());
}

TEST_F(FalseReflectionTest, FilesThatDoNotParseAreRefused) {
  reflection_.get_part = [](uint64_t) { return Part(2, "\x0a\x7f"); };
  EXPECT_EQ(absl::InternalError("the server's files do not parse"), Fault());
}

TEST_F(FalseReflectionTest, FilesThatThePoolRefusesAreRefusedWithAText) {
  google::protobuf::FileDescriptorSet files;
  files.add_file()->set_name("a.proto");
  files.mutable_file(0)->add_dependency("missing.proto");
  const std::string bytes = files.SerializeAsString();
  reflection_.get_part = [&](uint64_t) { return Part(bytes.size(), bytes); };
  EXPECT_EQ(absl::InvalidArgumentError(
                "the server's file a.proto can't be used: missing.proto: "
                "Import \"missing.proto\" has not been loaded."),
            Fault());
}

TEST_F(FalseReflectionTest, NamesOfServicesArePrintedWithEscapes) {
  reflection_.services.add_services("\x1b[2J\nforged\u202e");
  ::testing::internal::CaptureStdout();
  EXPECT_EQ(kSuccess, List(session_, {}));
  EXPECT_EQ("\\x1b[2J\\x0aforged\\u202e\n",
            ::testing::internal::GetCapturedStdout());
}

TEST_F(ReflectionTest, ServerWithoutReflectionIsSaidToOfferNone) {
  rpc::transport::LabService lab;
  Serve(lab);
  EXPECT_EQ(absl::UnimplementedError(
                "the server offers no reflection: it does not say what its "
                "services look like"),
            FetchServices(session_).status());
}

}  // namespace
}  // namespace rpcctl
