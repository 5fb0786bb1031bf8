// The gateway as a process, in front of hosts in processes of their own, and
// gRPC clients.

#include <gmock/gmock.h>
#include <google/protobuf/descriptor.h>
#include <google/protobuf/descriptor.pb.h>
#include <google/protobuf/descriptor_database.h>
#include <google/protobuf/wrappers.pb.h>
#include <grpc/grpc.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <deque>
#include <fstream>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "absl/strings/str_cat.h"
#include "core/common/rpc/grpc/testing/silent_peer.h"
#include "core/common/rpc/grpc/testing/test_client.h"
#include "core/common/rpc/loop/loop.h"
#include "core/common/rpc/testing/private_folder.h"
#include "core/common/rpc/testing/window_id.h"
#include "grpc/reflection/v1/reflection.pb.h"
#include "grpc/reflection/v1alpha/reflection.pb.h"
#include "rpc/browser/browser_window.pb.h"
#include "rpc/event_subscription.pb.h"
#include "rpc/status/server_status.pb.h"
#include "tools/rpcctl/process_test_support.h"

namespace rpc_gateway {
namespace {

using google::protobuf::Int64Value;
using google::protobuf::StringValue;
using rpc::CloseWindow;
using rpc::grpc::TestCall;
using rpc::grpc::TestClient;
using rpc::grpc::TestClientOptions;
using rpc::grpc::TestStream;
using rpcctl::Process;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;
using torvane::WindowId;

constexpr char kGetTitle[] = "/rpc.BrowserWindow/GetTitle";
constexpr char kClose[] = "/rpc.BrowserWindow/Close";
constexpr char kWhenClosed[] = "/rpc.BrowserWindow/WhenBrowserWindowClosed";
constexpr char kOnClose[] = "/rpc.BrowserWindow/OnCloseWindow";
constexpr char kStatus[] = "/rpc.status.ServerStatus/GetStatus";
constexpr char kHealthCheck[] = "/grpc.health.v1.Health/Check";
constexpr char kHealthWatch[] = "/grpc.health.v1.Health/Watch";
constexpr char kReflectionV1[] =
    "/grpc.reflection.v1.ServerReflection/ServerReflectionInfo";
constexpr char kReflectionV1Alpha[] =
    "/grpc.reflection.v1alpha.ServerReflection/ServerReflectionInfo";

// Of grpc.health.v1.
constexpr int64_t kServing = 1;
constexpr int64_t kNotServing = 2;

std::string Window(int64_t window) {
  return WindowId(window).SerializeAsString();
}

std::string EventsOf(int64_t window) {
  rpc::EventSubscription subscription;
  *subscription.mutable_subscribe_to() = WindowId(window);
  return subscription.SerializeAsString();
}

std::string QuestionsOf(int64_t window) {
  CloseWindow subscription;
  *subscription.mutable_browser_id() = WindowId(window);
  subscription.set_subscribe(true);
  return subscription.SerializeAsString();
}

// An answer as clients of the original contract give it.
std::string Answer(int64_t window, bool allowed) {
  CloseWindow answer;
  *answer.mutable_browser_id() = WindowId(window);
  answer.mutable_response()->set_allowed(allowed);
  return answer.SerializeAsString();
}

std::string ServiceName(const std::string& service) {
  StringValue name;
  name.set_value(service);
  return name.SerializeAsString();
}

template <typename T>
T Parse(const std::string& bytes) {
  T message;
  EXPECT_TRUE(message.ParseFromString(bytes));
  return message;
}

std::string ReadFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

class GatewayTest : public testing::Test {
 protected:
  ~GatewayTest() override {
    client_.reset();
    // Killed, not waited for.
    gateway_.reset();
    host_.reset();
  }

  void StartHost(std::vector<std::string> words = {}) {
    words.insert(words.begin(), {WINDOW_HOST, "--socket", socket_});
    host_.emplace(words);
    EXPECT_THAT(host_->ReadLine(), HasSubstr("ready at"));
    // Its records would fill the pipe.
    host_->CloseErrors();
  }

  // Returns when it listens.
  void StartGateway(std::vector<std::string> words = {}) {
    StartGatewayBy(GatewayWords(std::move(words)));
  }
  void StartGatewayBy(const std::vector<std::string>& words) {
    gateway_.emplace(words);
    const std::string ready = gateway_->ReadLine();
    EXPECT_THAT(ready, StartsWith("rpc_gateway: ready at 127.0.0.1:"));
    address_ = ready.substr(ready.rfind(' ') + 1);
  }
  // By so many hours whenever it looks at it.
  void StartGatewayThatSetsItsClock(const std::string& hours) {
    std::vector<std::string> words = GatewayWords({});
    words.insert(words.begin(),
                 {"/usr/bin/env", absl::StrCat("SET_CLOCK=", hours),
                  absl::StrCat("LD_PRELOAD=", SET_CLOCK)});
    StartGatewayBy(words);
  }
  std::vector<std::string> GatewayWords(std::vector<std::string> words) const {
    words.insert(words.begin(),
                 {RPC_GATEWAY, "--socket", socket_, "--listen", "127.0.0.1:0"});
    return words;
  }
  int Port() const {
    return std::stoi(address_.substr(address_.rfind(':') + 1));
  }
  void StartBoth() {
    StartHost();
    StartGateway();
  }

  TestClient& client() {
    if (!client_) {
      client_.emplace(loop_, address_);
    }
    return *client_;
  }

  template <typename Condition>
  void RunUntil(const Condition& condition) {
    EXPECT_TRUE(loop_.RunUntil(condition));
  }
  void Await(const std::shared_ptr<TestStream>& stream, size_t messages) {
    RunUntil(
        [&] { return stream->received.size() >= messages || stream->over; });
    ASSERT_GE(stream->received.size(), messages) << stream->status;
  }
  void AwaitEnd(const std::shared_ptr<TestStream>& stream) {
    RunUntil([&] { return stream->over; });
  }
  std::shared_ptr<TestCall> Call(TestClient& client,
                                 const std::string& path,
                                 const std::string& request) {
    auto call = client.Call(path, request);
    RunUntil([&] { return call->over; });
    return call;
  }
  std::shared_ptr<TestCall> Call(const std::string& path,
                                 const std::string& request) {
    return Call(client(), path, request);
  }
  std::string Title(TestClient& client, int64_t window) {
    const auto call = Call(client, kGetTitle, Window(window));
    return call->status.ok() ? Parse<StringValue>(call->response).value()
                             : call->status.ToString();
  }
  std::string Title(int64_t window) { return Title(client(), window); }

  // The most bytes of memory that the gateway has had.
  size_t PeakMemory() const {
    std::ifstream status(absl::StrCat("/proc/", gateway_->pid(), "/status"));
    for (std::string line; std::getline(status, line);) {
      size_t kilobytes = 0;
      if (std::sscanf(line.c_str(), "VmHWM: %zu kB", &kilobytes) == 1) {
        return kilobytes << 10;
      }
    }
    ADD_FAILURE() << "the gateway has no VmHWM";
    return 0;
  }

  // What the host says of its connections.
  rpc::status::StatusReport Status() {
    const auto call = Call(kStatus, "");
    EXPECT_EQ(call->status, absl::OkStatus());
    return Parse<rpc::status::StatusReport>(call->response);
  }
  // Opens a stream, and returns when the host has its subscription. gRPC keeps
  // no order between a stream and the calls beside it.
  std::shared_ptr<TestStream> Open(const std::string& path,
                                   const std::string& subscription) {
    const uint32_t before = Status().total().subscriptions();
    auto stream = client().Open(path);
    stream->Send(subscription);
    while (Status().total().subscriptions() == before) {
    }
    return stream;
  }

  // A request of reflection, which every version has alike.
  grpc::reflection::v1::ServerReflectionResponse Ask(
      const char* path,
      const grpc::reflection::v1::ServerReflectionRequest& request) {
    const auto stream = client().Open(path);
    stream->Send(request.SerializeAsString());
    Await(stream, 1);
    stream->HalfClose();
    AwaitEnd(stream);
    EXPECT_EQ(stream->status, absl::OkStatus());
    return Parse<grpc::reflection::v1::ServerReflectionResponse>(
        stream->received.empty() ? "" : stream->received[0]);
  }
  void AwaitHealth(TestStream& watch, int64_t wanted) {
    RunUntil([&] {
      return watch.over ||
             (!watch.received.empty() &&
              Parse<Int64Value>(watch.received.back()).value() == wanted);
    });
    EXPECT_FALSE(watch.over) << watch.status;
  }
  void AwaitServing() {
    const auto watch = client().Open(kHealthWatch);
    watch->Send(ServiceName(""));
    watch->HalfClose();
    AwaitHealth(*watch, kServing);
    watch->Cancel();
  }

  rpc::loop::Loop loop_;
  const torvane::PrivateFolder folder_;
  const std::string socket_ = folder_.File("host");
  std::optional<Process> host_;
  std::optional<Process> gateway_;
  std::string address_;
  std::optional<TestClient> client_;
};

TEST_F(GatewayTest, CallsReachTheHostWithCodesAndTexts) {
  StartBoth();
  EXPECT_EQ(Title(1), "Window 1");
  EXPECT_EQ(Title(99), "NOT_FOUND: No window 99.");
  EXPECT_EQ(Call("/rpc.BrowserWindow/Sing", "")->status,
            absl::UnimplementedError(
                "the server has no method rpc.BrowserWindow.Sing"));
}

TEST_F(GatewayTest, AnAnswerDecidesAndEventsTell) {
  StartBoth();
  const auto events = Open(kWhenClosed, EventsOf(2));
  const auto questions = Open(kOnClose, QuestionsOf(2));
  const auto call = client().Call(kClose, Window(2));
  Await(questions, 1);
  questions->Send(Answer(2, true) + std::string{15 << 3, 1});
  RunUntil([&] { return call->over; });
  EXPECT_TRUE(Parse<google::protobuf::BoolValue>(call->response).value());
  Await(events, 1);
  EXPECT_EQ(
      Parse<rpc::BrowserWindowClosed>(events->received[0]).browser_id().value(),
      2);
}

TEST_F(GatewayTest, ARefusalLetsTheHostGoOnWithoutAnAnswer) {
  StartBoth();
  const auto questions = Open(kOnClose, QuestionsOf(2));
  const auto call = client().Call(kClose, Window(2));
  Await(questions, 1);
  questions->Send(questions->received[0] + std::string{14 << 3, 1});
  RunUntil([&] { return call->over; });
  EXPECT_TRUE(Parse<google::protobuf::BoolValue>(call->response).value());
}

TEST_F(GatewayTest, AnOldStubAnswersTheOnlyQuestion) {
  StartBoth();
  const auto questions = Open(kOnClose, QuestionsOf(2));
  host_->Write("close 2\n");
  Await(questions, 1);
  questions->Send(Answer(2, false));
  EXPECT_THAT(host_->ReadLine(), HasSubstr("stays open"));
}

TEST_F(GatewayTest, AMessageThatWouldEndTheHostEndsItsStream) {
  StartBoth();
  const auto stream = client().Open(kOnClose);
  stream->Send("");
  AwaitEnd(stream);
  EXPECT_TRUE(absl::IsInvalidArgument(stream->status)) << stream->status;
  EXPECT_EQ(Status().messages_refused(), 1u);
}

TEST_F(GatewayTest, EachPeerIsAClientOfTheHost) {
  StartHost({"--max-streams", "1"});
  StartGateway();
  TestClient other(loop_, address_);
  EXPECT_EQ(Title(other, 1), "Window 1");
  const auto stream = Open(kWhenClosed, EventsOf(1));
  const auto refused = client().Open(kWhenClosed);
  AwaitEnd(refused);
  EXPECT_EQ(refused->status,
            absl::ResourceExhaustedError("max_streams, 1, are open"));
  const auto taken = other.Open(kWhenClosed);
  RunUntil([&] { return taken->accepted; });
  const rpc::status::StatusReport report = Status();
  std::vector<std::string> names;
  for (const auto& connection : report.connections()) {
    names.push_back(connection.name());
  }
  EXPECT_THAT(names, testing::UnorderedElementsAre(
                         "rpc_gateway", StartsWith("grpc ipv4:127.0.0.1:"),
                         StartsWith("grpc ipv4:127.0.0.1:")));
}

TEST_F(GatewayTest, APeerThatHasGoneIsForgotten) {
  StartHost();
  StartGateway({"--idle-peer", "0.01"});
  {
    TestClient other(loop_, address_);
    Title(other, 1);
  }
  const auto stream = Open(kWhenClosed, EventsOf(1));
  while (Status().connections_size() != 2) {
  }
}

TEST_F(GatewayTest, APeerThatAnswersNoPingIsLost) {
  StartHost();
  StartGateway({"--keepalive", "0.05", "--keepalive-timeout", "0.05"});
  rpc::grpc::SilentPeer(Port(), kWhenClosed).AwaitEnd();
}

TEST_F(GatewayTest, AClientMayNotSendMessagesOfEventsForEver) {
  StartHost();
  StartGateway({"--max-event-messages", "1"});
  const auto stream = client().Open(kWhenClosed);
  stream->Send(EventsOf(1));
  stream->Send(EventsOf(2));
  AwaitEnd(stream);
  EXPECT_THAT(stream->status.ToString(),
              StartsWith("RESOURCE_EXHAUSTED: more messages on one stream of "
                         "events than max_event_messages, 1"));
}

TEST_F(GatewayTest, ACallIsOverWhenItsTimeIs) {
  StartHost({"--answer-timeout", "3600"});
  StartGateway();
  const auto questions = Open(kOnClose, QuestionsOf(2));
  const auto call = client().Call(kClose, Window(2),
                                  {.timeout = std::chrono::milliseconds(200)});
  RunUntil([&] { return call->over; });
  EXPECT_TRUE(absl::IsDeadlineExceeded(call->status)) << call->status;
}

TEST_F(GatewayTest, ACallHasItsTimeThoughTheClockIsSet) {
  StartHost();
  StartGatewayThatSetsItsClock("1");
  const auto call = client().Call(kGetTitle, Window(1),
                                  {.timeout = std::chrono::minutes(10)});
  RunUntil([&] { return call->over; });
  EXPECT_EQ(call->status, absl::OkStatus());
}

TEST_F(GatewayTest, ACancelledCallLeavesNothing) {
  StartHost({"--answer-timeout", "3600"});
  StartGateway();
  const auto questions = Open(kOnClose, QuestionsOf(2));
  TestClient other(loop_, address_);
  const auto call = other.Call(kClose, Window(2));
  Await(questions, 1);
  call->Cancel();
  RunUntil([&] { return call->over; });
  EXPECT_TRUE(absl::IsCancelled(call->status));
  // The method works on, for nobody, until it has the answer.
  EXPECT_EQ(Status().total().calls_in_flight(), 1u);
  questions->Send(Answer(2, false));
  while (Status().total().calls_in_flight() != 0) {
  }
}

TEST_F(GatewayTest, ItWaitsForTheHostAndServesWhenItComesBack) {
  StartGateway();
  const auto watch = client().Open(kHealthWatch);
  watch->Send(ServiceName(""));
  watch->HalfClose();
  AwaitHealth(*watch, kNotServing);
  EXPECT_THAT(Title(1), StartsWith("UNAVAILABLE: the host cannot be reached"));

  StartHost();
  AwaitHealth(*watch, kServing);
  while (Title(1) != "Window 1") {
  }
  const auto stream = Open(kWhenClosed, EventsOf(1));

  host_->Signal(SIGKILL);
  host_->Wait();
  AwaitEnd(stream);
  EXPECT_TRUE(absl::IsUnavailable(stream->status)) << stream->status;
  AwaitHealth(*watch, kNotServing);
  EXPECT_THAT(Title(1), StartsWith("UNAVAILABLE"));

  StartHost();
  AwaitHealth(*watch, kServing);
  while (Title(1) != "Window 1") {
  }
}

TEST_F(GatewayTest, AStoppedHostSaysGoodbyeToStreams) {
  StartBoth();
  const auto stream = Open(kWhenClosed, EventsOf(1));
  host_->Signal(SIGTERM);
  AwaitEnd(stream);
  EXPECT_EQ(stream->status, absl::UnavailableError("the server is stopping"));
}

TEST_F(GatewayTest, HealthIsToldForEachService) {
  StartBoth();
  AwaitServing();
  for (const char* service :
       {"", "rpc.BrowserWindow", "rpc.status.ServerStatus"}) {
    const auto call = Call(kHealthCheck, ServiceName(service));
    EXPECT_EQ(Parse<Int64Value>(call->response).value(), kServing) << service;
  }
  EXPECT_TRUE(
      absl::IsNotFound(Call(kHealthCheck, ServiceName("rpc.Nothing"))->status));
}

TEST_F(GatewayTest, ReflectionListsAllServicesOfTheHost) {
  StartBoth();
  AwaitServing();
  grpc::reflection::v1::ServerReflectionRequest request;
  request.set_list_services("*");
  for (const char* path : {kReflectionV1, kReflectionV1Alpha}) {
    const auto response = Ask(path, request);
    std::vector<std::string> names;
    for (const auto& service : response.list_services_response().service()) {
      names.push_back(service.name());
    }
    EXPECT_THAT(names,
                ElementsAre("rpc.BrowserWindow", "rpc.status.ServerStatus",
                            "rpc.directory.WindowDirectory",
                            "rpc.reflection.ServerReflection",
                            "grpc.reflection.v1.ServerReflection",
                            "grpc.reflection.v1alpha.ServerReflection"));
  }
}

TEST_F(GatewayTest, ReflectionDescribesTheContractForGrpcClients) {
  StartBoth();
  AwaitServing();
  grpc::reflection::v1::ServerReflectionRequest request;
  request.set_file_containing_symbol("rpc.CloseWindow");
  const auto response = Ask(kReflectionV1, request);
  google::protobuf::SimpleDescriptorDatabase files;
  for (const std::string& file :
       response.file_descriptor_response().file_descriptor_proto()) {
    files.Add(Parse<google::protobuf::FileDescriptorProto>(file));
  }
  const google::protobuf::DescriptorPool pool(&files);
  const auto* const message = pool.FindMessageTypeByName("rpc.CloseWindow");
  ASSERT_NE(message, nullptr);
  EXPECT_EQ(message->FindFieldByName("call_id")->number(), 15);
  EXPECT_EQ(message->FindFieldByName("declined")->number(), 14);
}

TEST_F(GatewayTest, ItServesServicesItHasNeverHeardOf) {
  host_.emplace(std::vector<std::string>{SHOP_SERVER, socket_});
  EXPECT_EQ(host_->ReadLine(), "ready");
  StartGateway();
  AwaitServing();
  // The shop has nothing yet, and its texts are not tame.
  EXPECT_EQ(Call("/shop.Shop/GetPrice", Window(7))->status,
            absl::NotFoundError("No such article.\033[2J"));
  const auto events = client().Open("/shop.Shop/WhenPriceChanges");
  RunUntil([&] { return events->accepted; });
  grpc::reflection::v1::ServerReflectionRequest request;
  request.set_file_containing_symbol("shop.Shop.MayDiscount");
  EXPECT_TRUE(Ask(kReflectionV1, request).has_file_descriptor_response());
}

TEST_F(GatewayTest, LongMessagesAreRefused) {
  StartBoth();
  rpc::WindowTitle title;
  *title.mutable_browser_id() = WindowId(1);
  title.set_title(std::string(100'000, 'x'));
  const auto call =
      Call("/rpc.BrowserWindow/SetTitle", title.SerializeAsString());
  EXPECT_TRUE(absl::IsResourceExhausted(call->status)) << call->status;
}

// gRPC takes in a message of any length before it refuses it.
TEST_F(GatewayTest, ALongMessageIsGivenUpBeforeItTakesTheMemoryThatItNeeds) {
  // gRPC, when it is left for the last time, waits ten seconds for the thread
  // that has finished so long a write. So it is not left.
  grpc_init();
  StartHost();
  StartGateway({"--max-incoming-bytes", "4194304"});
  EXPECT_EQ(Title(1), "Window 1");
  const size_t before = PeakMemory();
  const auto call =
      Call("/rpc.BrowserWindow/SetTitle", std::string(48 << 20, 'x'));
  EXPECT_TRUE(absl::IsResourceExhausted(call->status)) << call->status;
  EXPECT_LT(PeakMemory() - before, 24u << 20);
  // The next call may come too early.
  while (Title(1) != "Window 1") {
  }
}

// A short one may become as long as anybody likes.
TEST_F(GatewayTest, ACompressedMessageIsRefusedAsItIs) {
  StartHost();
  StartGateway({"--max-client-frame-bytes", "1048576"});
  EXPECT_EQ(Title(1), "Window 1");
  const size_t before = PeakMemory();
  for (const auto& [algorithm, name] : {std::pair{GRPC_COMPRESS_GZIP, "gzip"},
                                        {GRPC_COMPRESS_DEFLATE, "deflate"}}) {
    const auto call =
        client().Call("/rpc.BrowserWindow/SetTitle", std::string(24 << 20, 'x'),
                      {.compression = algorithm});
    RunUntil([&] { return call->over; });
    ASSERT_EQ(call->status,
              absl::UnimplementedError(absl::StrCat("Compression algorithm '",
                                                    name, "' is disabled.")));
    // What gRPC has to say about it is a record like any other.
    EXPECT_THAT(gateway_->ReadErrorLine(),
                AllOf(StartsWith("["), HasSubstr(":ERROR:"),
                      HasSubstr(call->status.message())));
  }
  EXPECT_LT(PeakMemory() - before, 12u << 20);
}

TEST_F(GatewayTest, ItAcceptsAgainWhenItHasDescriptorsAgain) {
  StartHost();
  const std::vector<std::string> words = GatewayWords({});
  std::vector<std::string> limited = {"/bin/sh", "-c",
                                      "ulimit -n 64 && exec \"$0\" \"$@\""};
  limited.insert(limited.end(), words.begin(), words.end());
  StartGatewayBy(limited);
  std::deque<rpc::grpc::SilentPeer> peers;
  for (int i = 0; i < 64; ++i) {
    peers.emplace_back(Port(), kHealthWatch);
  }
  EXPECT_THAT(gateway_->ReadErrorLine(), HasSubstr("Too many open files"));
  peers.clear();
  EXPECT_EQ(Title(1), "Window 1");
}

TEST_F(GatewayTest, ASignalStopsIt) {
  StartBoth();
  const auto stream = Open(kWhenClosed, EventsOf(1));
  gateway_->Signal(SIGTERM);
  AwaitEnd(stream);
  EXPECT_EQ(stream->status, absl::UnavailableError("the server is stopping"));
  EXPECT_EQ(gateway_->Wait().exit_code, 0);
}

// Somebody who watches the health has the rest of the grace.
TEST_F(GatewayTest, ItStopsInItsTimeThoughTheClockIsSetBack) {
  StartHost();
  StartGatewayThatSetsItsClock("-1");
  const auto watch = client().Open(kHealthWatch);
  watch->Send(ServiceName(""));
  Await(watch, 1);
  gateway_->Signal(SIGTERM);
  EXPECT_EQ(gateway_->Wait().exit_code, 0);
}

TEST_F(GatewayTest, ACallMayTakeItsGraceWhenItStops) {
  StartHost({"--answer-timeout", "3600"});
  StartGateway({"--grace", "3600"});
  // Answered by a client that is not behind the gateway.
  Process answerer(
      {WINDOWCTL, "--socket", socket_, "answer", "OnCloseWindow", "2"});
  EXPECT_THAT(answerer.ReadErrorLine(), HasSubstr("subscribed"));
  const auto call = client().Call(kClose, Window(2));
  EXPECT_THAT(answerer.ReadLine(), HasSubstr("2"));
  gateway_->Signal(SIGTERM);
  // That it is stopping shows.
  while (!absl::IsUnavailable(Call(kGetTitle, Window(1))->status)) {
  }
  EXPECT_FALSE(call->over);
  answerer.Write("{\"allowed\": false}\n");
  RunUntil([&] { return call->over; });
  EXPECT_EQ(call->status, absl::OkStatus());
  EXPECT_EQ(gateway_->Wait().exit_code, 0);
}

// Beyond the loopback, and with what keeps others out.

TEST_F(GatewayTest, ItListensBeyondTheLoopbackOnlyForWhoIsKnown) {
  const Process::Result refused = rpcctl::RunToEnd(
      {RPC_GATEWAY, "--socket", socket_, "--listen", "0.0.0.0:0"});
  EXPECT_EQ(refused.exit_code, 1);
  EXPECT_THAT(refused.errors,
              StartsWith("rpc_gateway: 0.0.0.0:0 is beyond the loopback"));
  Process insecure({RPC_GATEWAY, "--socket", socket_, "--listen", "0.0.0.0:0",
                    "--insecure"});
  EXPECT_THAT(insecure.ReadLine(),
              StartsWith("rpc_gateway: ready at 0.0.0.0:"));
}

TEST_F(GatewayTest, OnlyWhoHasTheTokenComesIn) {
  StartHost();
  const std::string file = folder_.File("token");
  std::ofstream(file) << "open sesame\n";
  StartGateway({"--token-file", file});
  EXPECT_EQ(Title(1), "UNAUTHENTICATED: the token is missing or wrong");
  const auto stream = client().Open(kReflectionV1);
  AwaitEnd(stream);
  EXPECT_TRUE(absl::IsUnauthenticated(stream->status));
  TestClientOptions options;
  options.authorization = "Bearer open sesame";
  TestClient known(loop_, address_, options);
  EXPECT_EQ(Title(known, 1), "Window 1");
  options.authorization = "Bearer open barley";
  TestClient stranger(loop_, address_, options);
  EXPECT_EQ(Title(stranger, 1),
            "UNAUTHENTICATED: the token is missing or wrong");
}

// Certificates of one authority, and one of another.
class TlsTest : public GatewayTest {
 protected:
  void SetUp() override {
    if (std::string_view(OPENSSL).empty()) {
      GTEST_SKIP() << "openssl is missing, which makes the certificates";
    }
    NewAuthority("ca");
    NewAuthority("other_ca");
    NewCertificate("ca", "gateway");
    NewCertificate("ca", "client");
    NewCertificate("other_ca", "stranger");
    StartHost();
  }

  std::string File(const std::string& name) const { return folder_.File(name); }

  static void OpenSsl(std::vector<std::string> words) {
    words.insert(words.begin(), OPENSSL);
    const Process::Result result = rpcctl::RunToEnd(words);
    ASSERT_EQ(result.exit_code, 0) << result.errors;
  }
  void NewAuthority(const std::string& name) const {
    OpenSsl({"req", "-x509", "-newkey", "ec", "-pkeyopt",
             "ec_paramgen_curve:P-256", "-nodes", "-days", "2", "-subj",
             "/CN=" + name, "-keyout", File(name + ".key"), "-out",
             File(name + ".pem")});
  }
  void NewCertificate(const std::string& authority,
                      const std::string& name) const {
    OpenSsl({"req",
             "-x509",
             "-newkey",
             "ec",
             "-pkeyopt",
             "ec_paramgen_curve:P-256",
             "-nodes",
             "-days",
             "2",
             "-subj",
             "/CN=" + name,
             "-addext",
             "subjectAltName=IP:127.0.0.1",
             "-addext",
             "basicConstraints=critical,CA:FALSE",
             "-CA",
             File(authority + ".pem"),
             "-CAkey",
             File(authority + ".key"),
             "-keyout",
             File(name + ".key"),
             "-out",
             File(name + ".pem")});
  }

  // Who shows the certificate `name`, or none.
  TestClientOptions Showing(const std::string& name) const {
    grpc::SslCredentialsOptions options;
    options.pem_root_certs = ReadFile(File("ca.pem"));
    if (!name.empty()) {
      options.pem_cert_chain = ReadFile(File(name + ".pem"));
      options.pem_private_key = ReadFile(File(name + ".key"));
    }
    return {grpc::SslCredentials(options), ""};
  }
  std::string TitleFor(const TestClientOptions& options) {
    TestClient client(loop_, address_, options);
    return Title(client, 1);
  }
};

TEST_F(TlsTest, WithACaOnlyItsClientsComeIn) {
  StartGateway({"--tls-certificate", File("gateway.pem"), "--tls-key",
                File("gateway.key"), "--tls-client-ca", File("ca.pem")});
  EXPECT_EQ(TitleFor(Showing("client")), "Window 1");
  EXPECT_THAT(TitleFor(Showing("stranger")), StartsWith("UNAVAILABLE"));
  EXPECT_THAT(TitleFor(Showing("")), StartsWith("UNAVAILABLE"));
  EXPECT_THAT(TitleFor({}), StartsWith("UNAVAILABLE"));
}

TEST_F(TlsTest, WithoutACaWhoeverSpeaksTlsComesIn) {
  StartGateway({"--tls-certificate", File("gateway.pem"), "--tls-key",
                File("gateway.key")});
  EXPECT_EQ(TitleFor(Showing("")), "Window 1");
  EXPECT_THAT(TitleFor({}), StartsWith("UNAVAILABLE"));
}

TEST_F(TlsTest, WhatIsNoGoodForTlsIsRefused) {
  const std::vector<std::string> with_key = {"--tls-certificate",
                                             File("gateway.pem"), "--tls-key"};
  for (const auto& words :
       {std::vector<std::string>{File("client.key")},
        {File("gateway.key"), "--tls-client-ca", File("gateway.key")}}) {
    std::vector<std::string> all = with_key;
    all.insert(all.end(), words.begin(), words.end());
    const Process::Result refused = rpcctl::RunToEnd(GatewayWords(all));
    EXPECT_EQ(refused.exit_code, 1);
    EXPECT_THAT(refused.errors, HasSubstr("the certificate, its key or the CA "
                                          "of clients is no good"));
  }
}

// Its command line.

TEST_F(GatewayTest, AWrongCommandLineIsRefused) {
  for (const auto& [words, text] :
       {std::pair{std::vector<std::string>{"extra"}, "There are only flags."},
        {{"--grace"}, "--grace"},
        {{"--max-frame-bytes", "1"}, "--max-frame-bytes"},
        {{"--max-incoming-bytes", "65535"}, "--max-client-frame-bytes"}}) {
    const Process::Result result = rpcctl::RunToEnd(GatewayWords(words));
    EXPECT_EQ(result.exit_code, 2);
    EXPECT_THAT(result.errors,
                AllOf(StartsWith("rpc_gateway: "), HasSubstr(text)));
  }
}

TEST_F(GatewayTest, ALimitOfTheHostsIsNoneOfTheGateways) {
  EXPECT_EQ(rpcctl::RunToEnd(GatewayWords({"--max-questions", "1"})).exit_code,
            2);
}

TEST_F(GatewayTest, ItsOwnLimitsMayBeSmall) {
  StartHost();
  StartGateway(
      {"--max-outbox-bytes", "1024", "--max-client-frame-bytes", "8192"});
  EXPECT_EQ(Title(1), "Window 1");
  rpc::WindowTitle title;
  title.set_title(std::string(10'000, 'x'));
  EXPECT_TRUE(absl::IsResourceExhausted(
      Call("/rpc.BrowserWindow/SetTitle", title.SerializeAsString())->status));
}

TEST_F(GatewayTest, AFileThatCannotBeReadIsNamed) {
  const std::string empty = folder_.File("empty");
  std::ofstream file(empty);
  for (const auto& [path, text] :
       {std::pair{folder_.File("missing"), "cannot read "},
        {folder_.path(), "cannot read "},
        {empty, " is empty"}}) {
    for (const char* flag : {"--tls-certificate", "--tls-key",
                             "--tls-client-ca", "--token-file"}) {
      const Process::Result result =
          rpcctl::RunToEnd(GatewayWords({flag, path}));
      EXPECT_EQ(result.exit_code, 1) << flag;
      EXPECT_THAT(result.errors, AllOf(HasSubstr(text), HasSubstr(path)));
    }
  }
}

TEST_F(GatewayTest, ATokenFileWithoutATokenIsRefused) {
  const std::string blank = folder_.File("blank");
  std::ofstream(blank) << "\n";
  const Process::Result result =
      rpcctl::RunToEnd(GatewayWords({"--token-file", blank}));
  EXPECT_EQ(result.exit_code, 1);
  EXPECT_THAT(result.errors, HasSubstr("has no token"));
}

TEST_F(GatewayTest, HelpNamesEveryFlag) {
  const Process::Result result = rpcctl::RunToEnd({RPC_GATEWAY, "--help"});
  EXPECT_EQ(result.exit_code, 0);
  for (const char* flag : {"--socket",
                           "--listen",
                           "--tls-certificate",
                           "--tls-key",
                           "--tls-client-ca",
                           "--token-file",
                           "--insecure",
                           "--max-event-messages",
                           "--max-incoming-bytes",
                           "--keepalive ",
                           "--keepalive-timeout",
                           "--idle-peer",
                           "--grace",
                           "--max-connections",
                           "--max-calls",
                           "--max-streams",
                           "--max-client-frame-bytes",
                           "--max-frame-bytes",
                           "--max-outbox-bytes",
                           "--handshake-timeout"}) {
    EXPECT_THAT(result.output, HasSubstr(flag));
  }
}

}  // namespace
}  // namespace rpc_gateway
