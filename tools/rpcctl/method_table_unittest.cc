#include "tools/rpcctl/method_table.h"

#include <google/protobuf/descriptor.h>
#include <google/protobuf/descriptor.pb.h>

#include <string>
#include <vector>

#include "absl/strings/str_split.h"
#include "gmock/gmock.h"
#include "gtest/gtest.h"
#include "rpc/browser/browser_window.pb.h"

namespace rpcctl {
namespace {

using ::testing::ContainsRegex;
using ::testing::EndsWith;
using ::testing::StartsWith;
using torvane::MethodKind;

const google::protobuf::ServiceDescriptor& Service() {
  return *rpc::BrowserWindow::descriptor();
}

constexpr CommandForms kForms = {.list = "windowctl methods",
                                 .call = "windowctl call $0 JSON",
                                 .watch = "windowctl watch ID...",
                                 .answer = "windowctl answer $0 ID..."};

std::string Fault(std::string_view name, MethodKind kind) {
  const absl::Status status =
      FindMethod({&Service()}, name, kind, kForms).status();
  EXPECT_EQ(absl::StatusCode::kInvalidArgument, status.code());
  return std::string(status.message());
}

TEST(MethodTable, ListHasOneAlignedLineForEachMethod) {
  std::vector<std::string> lines = absl::StrSplit(ListMethods(Service()), '\n');
  ASSERT_EQ(42u, lines.size());
  EXPECT_EQ("", lines.back());
  lines.pop_back();
  for (int i = 0; i < Service().method_count(); ++i)
    EXPECT_THAT(lines[i], StartsWith(Service().method(i)->name() + " "));
  EXPECT_THAT(lines[0], ContainsRegex("^Show +BrowserId +"
                                      "google\\.protobuf\\.Empty +unary$"));
  EXPECT_THAT(lines[37],
              ContainsRegex("^WhenBrowserWindowClosed +rpc\\.EventSubscription "
                            "+rpc\\.BrowserWindowClosed +event stream$"));
  EXPECT_THAT(lines[40], ContainsRegex("^OnCloseWindow +rpc\\.CloseWindow "
                                       "+rpc\\.CloseWindow +callback stream$"));
  EXPECT_EQ(lines[0].find("BrowserId"), lines[40].find("rpc.CloseWindow"));
  EXPECT_EQ(lines[0].find("unary"), lines[40].find("callback stream"));
}

TEST(MethodTable, KindsAreThoseOfTheContract) {
  const std::vector<std::string> lines =
      absl::StrSplit(ListMethods(Service()), '\n');
  for (int i = 0; i < Service().method_count(); ++i) {
    const char* const expected = i < 37    ? "  unary"
                                 : i == 37 ? "  event stream"
                                           : "  callback stream";
    EXPECT_THAT(lines[i], EndsWith(expected));
  }
}

TEST(MethodTable, MethodIsFoundByNameAndKind) {
  EXPECT_EQ(Service().method(15),
            *FindMethod({&Service()}, "Close", MethodKind::kUnary, kForms));
  EXPECT_EQ(Service().method(40),
            *FindMethod({&Service()}, "OnCloseWindow",
                        MethodKind::kCallbackStream, kForms));
}

// Services s1.S, s2.S and x.s1.S, each with a method A and one of its own.
class SeveralServices : public ::testing::Test {
 protected:
  SeveralServices() {
    google::protobuf::FileDescriptorProto file;
    file.set_name("empty.proto");
    file.add_message_type()->set_name("Empty");
    pool_.BuildFile(file);
    Add("s1", "B1");
    Add("s2", "B2");
    Add("x.s1", "B3");
  }

  absl::StatusOr<const google::protobuf::MethodDescriptor*> Find(
      std::string_view name) const {
    return FindMethod(services_, name, MethodKind::kUnary, kForms);
  }

  std::string NameOf(std::string_view name) const {
    const auto found = Find(name);
    return found.ok() ? (*found)->full_name()
                      : std::string(found.status().message());
  }

 private:
  void Add(const std::string& package, const std::string& method) {
    google::protobuf::FileDescriptorProto file;
    file.set_name(package + ".proto");
    file.set_package(package);
    file.add_dependency("empty.proto");
    auto* const service = file.add_service();
    service->set_name("S");
    for (const std::string& name : {std::string("A"), method}) {
      auto* const added = service->add_method();
      added->set_name(name);
      added->set_input_type(".Empty");
      added->set_output_type(".Empty");
    }
    services_.push_back(pool_.BuildFile(file)->service(0));
  }

  google::protobuf::DescriptorPool pool_;
  std::vector<const google::protobuf::ServiceDescriptor*> services_;
};

TEST_F(SeveralServices, MethodIsFoundByTheEndOfItsNameThatNoOtherHas) {
  EXPECT_EQ("s1.S.B1", NameOf("B1"));
  EXPECT_EQ("s1.S.B1", NameOf("S.B1"));
  EXPECT_EQ("s2.S.B2", NameOf("s2.S.B2"));
  EXPECT_EQ("s2.S.A", NameOf("s2.S.A"));
  // A part of a word is no end.
  EXPECT_THAT(NameOf("1"), StartsWith("There is no method 1."));
}

TEST_F(SeveralServices, MethodByItsFullNameIsFoundThoughOthersEndInIt) {
  EXPECT_EQ("s1.S.A", NameOf("s1.S.A"));
  EXPECT_EQ("x.s1.S.A", NameOf("x.s1.S.A"));
}

TEST_F(SeveralServices, NameThatSeveralHaveIsAnsweredWithAllOfThem) {
  EXPECT_EQ(
      absl::InvalidArgumentError("S.A could be s1.S.A or s2.S.A or x.s1.S.A."),
      Find("S.A").status());
}

TEST(MethodTable, UnknownMethodIsAnsweredWithTheNearestName) {
  EXPECT_EQ(
      "There is no method Shwo. Did you mean Show? 'windowctl methods' lists "
      "them all.",
      Fault("Shwo", MethodKind::kUnary));
  EXPECT_EQ("There is no method Teleport. 'windowctl methods' lists them all.",
            Fault("Teleport", MethodKind::kUnary));
}

TEST(MethodTable, MethodOfAnotherKindIsAnsweredWithTheCommandForIt) {
  EXPECT_EQ(
      "WhenBrowserWindowClosed is of the kind 'event stream': use 'windowctl "
      "watch ID...'.",
      Fault("WhenBrowserWindowClosed", MethodKind::kUnary));
  EXPECT_EQ(
      "OnCloseWindow is of the kind 'callback stream': use 'windowctl answer "
      "OnCloseWindow ID...'.",
      Fault("OnCloseWindow", MethodKind::kUnary));
  EXPECT_EQ("Show is of the kind 'unary': use 'windowctl call Show JSON'.",
            Fault("Show", MethodKind::kCallbackStream));
}

TEST(MethodTable, StreamOfNoKnownKindIsListedButServesNoCommand) {
  google::protobuf::FileDescriptorProto file;
  file.set_name("count.proto");
  file.add_message_type()->set_name("Number");
  auto* const service = file.add_service();
  service->set_name("Counter");
  auto* const method = service->add_method();
  method->set_name("Count");
  method->set_input_type("Number");
  method->set_output_type("Number");
  method->set_server_streaming(true);
  google::protobuf::DescriptorPool pool;
  const auto& counter = *pool.BuildFile(file)->service(0);

  EXPECT_EQ("Count  Number  Number  stream\n", ListMethods(counter));
  for (const MethodKind kind : {MethodKind::kUnary, MethodKind::kEventStream,
                                MethodKind::kCallbackStream}) {
    EXPECT_EQ(absl::InvalidArgumentError(
                  "Count is of the kind 'stream': no command can use it."),
              FindMethod({&counter}, "Count", kind, kForms).status());
  }
}

}  // namespace
}  // namespace rpcctl
