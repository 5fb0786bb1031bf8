// What clients are told about the services of a server, and that it reaches
// those with the shortest frames.

#include "core/common/rpc/reflection/reflection_service.h"

#include <gmock/gmock.h>
#include <google/protobuf/descriptor.pb.h>
#include <gtest/gtest.h>

#include <memory>
#include <set>
#include <string>
#include <vector>

#include "absl/strings/str_cat.h"
#include "core/common/rpc/transport/testing/lab.h"
#include "rpc/browser/browser_window.rpc.h"

namespace rpc::reflection {
namespace {

using google::protobuf::FileDescriptorProto;
using google::protobuf::FileDescriptorSet;
using ::testing::ElementsAre;
using ::testing::SizeIs;
using transport::Client;
using transport::ClientController;
using transport::Lab;

absl::StatusOr<FilesPart> GetPart(Client& client,
                                  const std::string& service,
                                  uint64_t offset) {
  FilesRequest request;
  request.set_service(service);
  request.set_offset(offset);
  FilesPart part;
  ClientController controller;
  ServerReflection_Stub(&client).GetFiles(&controller, &request, &part,
                                          nullptr);
  if (!controller.status().ok()) {
    return controller.status();
  }
  return part;
}

// As a client is to put the parts together.
std::string GetBytes(Client& client, const std::string& service) {
  std::string bytes;
  uint64_t total = 0;
  do {
    const auto part = GetPart(client, service, bytes.size());
    EXPECT_TRUE(part.ok()) << part.status();
    if (!part.ok() || part->bytes().empty()) {
      return "";
    }
    bytes += part->bytes();
    total = part->total_bytes();
  } while (bytes.size() < total);
  EXPECT_EQ(bytes.size(), total);
  return bytes;
}

FileDescriptorSet GetFiles(Client& client, const std::string& service) {
  FileDescriptorSet files;
  EXPECT_TRUE(files.ParseFromString(GetBytes(client, service)));
  return files;
}

std::vector<std::string> NamesOf(const FileDescriptorSet& files) {
  std::vector<std::string> names;
  for (const FileDescriptorProto& file : files.file()) {
    names.push_back(file.name());
  }
  return names;
}

// A server with the lab's service, that of windows and the reflection service.
class ReflectionServiceTest : public ::testing::Test {
 protected:
  ReflectionServiceTest() {
    lab_.server->AddService(&windows_);
    lab_.server->AddService(&reflection_);
  }
  ~ReflectionServiceTest() override { lab_.server.reset(); }

  // A client that takes the shortest frames that are allowed.
  std::unique_ptr<Client> NewClient() {
    transport::ClientOptions options;
    options.limits.max_frame_bytes = serving::kMinFrameBytes;
    return lab_.NewClient(options);
  }

  BrowserWindowRpc windows_;
  Lab lab_;
  ReflectionService reflection_{[this] { return lab_.server->Services(); }};
};

TEST_F(ReflectionServiceTest, ServicesAreListedInTheOrderInWhichTheyWereAdded) {
  const auto client = NewClient();
  ClientController controller;
  ServiceList list;
  ServerReflection_Stub(client.get())
      .ListServices(&controller, &ListServicesRequest::default_instance(),
                    &list, nullptr);
  ASSERT_TRUE(controller.status().ok()) << controller.status();
  EXPECT_THAT(list.services(), ElementsAre("lab.Lab", "rpc.BrowserWindow",
                                           "rpc.reflection.ServerReflection"));
}

TEST_F(ReflectionServiceTest, AServiceComesWithItsImportsEachOnceAndFirst) {
  const auto client = NewClient();
  EXPECT_THAT(NamesOf(GetFiles(*client, "lab.Lab")),
              ElementsAre("browser_id.proto", "rpc/event_subscription.proto",
                          "lab.proto"));
  EXPECT_THAT(NamesOf(GetFiles(*client, "rpc.reflection.ServerReflection")),
              ElementsAre("rpc/reflection/server_reflection.proto"));
}

TEST_F(ReflectionServiceTest, WithoutANameTheFilesOfAllServicesComeEachOnce) {
  const auto client = NewClient();
  const std::vector<std::string> names = NamesOf(GetFiles(*client, ""));
  EXPECT_THAT(std::set<std::string>(names.begin(), names.end()),
              SizeIs(names.size()));
  EXPECT_THAT(names,
              ::testing::IsSupersetOf({"browser_id.proto", "lab.proto",
                                       "rpc/browser/browser_window.proto",
                                       "rpc/reflection/"
                                       "server_reflection.proto"}));
}

TEST_F(ReflectionServiceTest, APoolMakesTheSameOfTheFilesAsTheServerHas) {
  const auto client = NewClient();
  const FileDescriptorSet files = GetFiles(*client, "rpc.BrowserWindow");
  google::protobuf::DescriptorPool pool;
  for (const FileDescriptorProto& file : files.file()) {
    ASSERT_NE(pool.BuildFile(file), nullptr) << file.name();
  }
  const auto* service = pool.FindServiceByName("rpc.BrowserWindow");
  ASSERT_NE(service, nullptr);
  EXPECT_EQ(service->file()->DebugString(),
            BrowserWindow::descriptor()->file()->DebugString());
}

TEST_F(ReflectionServiceTest, APartIsAsLongAsPossibleAndTheLastOneAsIsLeft) {
  const auto client = NewClient();
  const uint64_t total = GetBytes(*client, "rpc.BrowserWindow").size();
  const auto size = [&](uint64_t offset) {
    const auto part = GetPart(*client, "rpc.BrowserWindow", offset);
    EXPECT_TRUE(part.ok()) << part.status();
    const FilesPart got = part.value_or(FilesPart());
    EXPECT_EQ(got.total_bytes(), total);
    return got.bytes().size();
  };
  constexpr size_t kMax = ReflectionService::kMaxPartBytes;
  EXPECT_EQ(size(0), kMax);
  EXPECT_EQ(size(total - kMax - 1), kMax);
  EXPECT_EQ(size(total - kMax), kMax);
  EXPECT_EQ(size(total - kMax + 1), kMax - 1);
  EXPECT_EQ(size(total), 0u);
}

TEST_F(ReflectionServiceTest, AnOffsetBeyondTheLastByteIsOutOfRange) {
  const auto client = NewClient();
  const uint64_t total = GetBytes(*client, "lab.Lab").size();
  EXPECT_EQ(
      GetPart(*client, "lab.Lab", total + 1).status(),
      absl::OutOfRangeError(absl::StrCat(
          "the files have ", total, " bytes, none at offset ", total + 1)));
}

TEST_F(ReflectionServiceTest, AServiceThatIsNotOfferedIsNotFound) {
  const auto client = NewClient();
  for (const std::string name : {"lab.Aquarium", "lab.Lab.Echo", "Lab"}) {
    EXPECT_EQ(
        GetPart(*client, name, 0).status(),
        absl::NotFoundError("the server offers no service \"" + name + "\""));
  }
}

// Otherwise the refusal would be longer than the frames that it may come in.
TEST_F(ReflectionServiceTest, OfANameThatIsNoneOnlyTheBeginningIsRepeated) {
  const auto client = NewClient();
  EXPECT_EQ(GetPart(*client, std::string(257, 'x'), 0).status(),
            absl::NotFoundError("the server offers no service \"" +
                                std::string(256, 'x') + "\""));
  EXPECT_EQ(
      GetPart(*client, "\u202e\n" + std::string(50'000, 'x'), 0)
          .status()
          .message()
          .substr(0, 60),
      "the server offers no service \"\\xe2\\x80\\xae\\nxxxxxxxxxxxxxxxx");
}

// The files of all services are kept from one request to the next.
TEST(ReflectionServiceAlone, AServiceThatIsAddedLaterIsInTheFilesOfAll) {
  ReflectionService::Services offered = {lab::Lab::descriptor()};
  ReflectionService service([&] { return offered; });
  const auto get_total = [&] {
    FilesPart part;
    torvane::CountingClosure done;
    service.GetFiles(nullptr, &FilesRequest::default_instance(), &part, &done);
    return part.total_bytes();
  };
  const uint64_t before = get_total();
  EXPECT_GT(before, 0u);
  EXPECT_EQ(get_total(), before);
  offered.push_back(BrowserWindow::descriptor());
  EXPECT_GT(get_total(), before);
}

// A file of many times the length of its frames, with a field that has a name
// of its own in JSON.
TEST(ReflectionServiceAlone, AClientWithTheShortestFramesGetsLongFiles) {
  FileDescriptorProto file;
  file.set_name("long.proto");
  for (int i = 0; i < 5'000; ++i) {
    file.add_message_type()->set_name(absl::StrCat("Message", i));
  }
  auto* const field = file.mutable_message_type(7)->add_field();
  field->set_name("number");
  field->set_number(1);
  field->set_type(google::protobuf::FieldDescriptorProto::TYPE_INT32);
  field->set_label(google::protobuf::FieldDescriptorProto::LABEL_OPTIONAL);
  field->set_json_name("n");
  file.add_service()->set_name("Long");
  google::protobuf::DescriptorPool pool;
  ReflectionService service([&] {
    return ReflectionService::Services{pool.FindServiceByName("Long")};
  });
  ASSERT_NE(pool.BuildFile(file), nullptr);
  ASSERT_GT(file.ByteSizeLong(), 8 * serving::kMinFrameBytes);

  Lab lab;
  lab.server->AddService(&service);
  transport::ClientOptions options;
  options.limits.max_frame_bytes = serving::kMinFrameBytes;
  const auto client = lab.NewClient(options);
  const FileDescriptorSet files = GetFiles(*client, "Long");
  ASSERT_EQ(files.file_size(), 1);
  EXPECT_EQ(files.file(0).SerializeAsString(), file.SerializeAsString());
  lab.server.reset();
}

TEST(ReflectionServiceAlone, OfAServerWithoutServicesThereIsNothingToSay) {
  ReflectionService service([] { return ReflectionService::Services(); });
  torvane::CountingClosure done;
  ServiceList list;
  service.ListServices(nullptr, &ListServicesRequest::default_instance(), &list,
                       &done);
  EXPECT_EQ(list.services_size(), 0);
  FilesPart part;
  service.GetFiles(nullptr, &FilesRequest::default_instance(), &part, &done);
  EXPECT_EQ(part.total_bytes(), 0u);
  EXPECT_EQ(part.bytes(), "");
  EXPECT_EQ(done.runs(), 2);
}

}  // namespace
}  // namespace rpc::reflection
