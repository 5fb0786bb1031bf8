#include "tools/windowctl/method_table.h"

#include <google/protobuf/descriptor.h>
#include <google/protobuf/descriptor.pb.h>

#include <string>
#include <vector>

#include "absl/strings/str_split.h"
#include "gmock/gmock.h"
#include "gtest/gtest.h"
#include "rpc/browser/browser_window.pb.h"

namespace windowctl {
namespace {

using ::testing::ContainsRegex;
using ::testing::EndsWith;
using ::testing::StartsWith;
using torvane::MethodKind;

const google::protobuf::ServiceDescriptor& Service() {
  return *rpc::BrowserWindow::descriptor();
}

std::string Fault(std::string_view name, MethodKind kind) {
  const absl::Status status = FindMethod(Service(), name, kind).status();
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
            *FindMethod(Service(), "Close", MethodKind::kUnary));
  EXPECT_EQ(Service().method(40), *FindMethod(Service(), "OnCloseWindow",
                                              MethodKind::kCallbackStream));
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
              FindMethod(counter, "Count", kind).status());
  }
}

}  // namespace
}  // namespace windowctl
