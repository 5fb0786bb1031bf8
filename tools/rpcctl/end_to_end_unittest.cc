// The program against a server of another domain, of which it knows nothing,
// and against the example host.

#include <signal.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "core/common/rpc/testing/private_folder.h"
#include "gmock/gmock.h"
#include "gtest/gtest.h"
#include "tools/rpcctl/exit_code.h"
#include "tools/rpcctl/process_test_support.h"

namespace rpcctl {
namespace {

using ::testing::ContainsRegex;
using ::testing::HasSubstr;
using ::testing::StartsWith;

class RpcctlTest : public ::testing::Test {
 protected:
  std::vector<std::string> ClientWords(std::vector<std::string> words) const {
    words.insert(words.begin(), {RPCCTL, "--socket", socket_});
    return words;
  }

  Process::Result Run(std::vector<std::string> words) const {
    return RunToEnd(ClientWords(std::move(words)));
  }

  // Expects success, and returns what the command prints.
  std::string Print(std::vector<std::string> words) const {
    const Process::Result result = Run(std::move(words));
    EXPECT_EQ(kSuccess, result.exit_code);
    EXPECT_EQ("", result.errors);
    return result.output;
  }

  // Expects this exit code and no output, and returns what is wrong.
  std::string Fault(ExitCode exit_code, std::vector<std::string> words) const {
    const Process::Result result = Run(std::move(words));
    EXPECT_EQ(exit_code, result.exit_code);
    EXPECT_EQ("", result.output);
    return result.errors;
  }

  // Starts a program that opens a stream. Returns when it is subscribed.
  std::unique_ptr<Process> StartStream(
      std::vector<std::string> words,
      Process::Terminal terminal = Process::Terminal::kNone) const {
    auto stream =
        std::make_unique<Process>(ClientWords(std::move(words)), terminal);
    EXPECT_EQ("rpcctl: subscribed", stream->ReadErrorLine());
    return stream;
  }

  static void ExpectInterruptible(Process& stream) {
    stream.Signal(SIGINT);
    const Process::Result result = stream.Wait();
    EXPECT_EQ(kSuccess, result.exit_code);
    EXPECT_EQ("", result.errors);
  }

  const torvane::PrivateFolder folder_;
  const std::string socket_ = folder_.File("server.sock");
  std::unique_ptr<Process> server_;
};

class ShopTest : public RpcctlTest {
 protected:
  ShopTest() { StartServer({}); }

  void StartServer(std::vector<std::string> flags) {
    flags.insert(flags.begin(), {SHOP_SERVER, socket_});
    server_ = std::make_unique<Process>(flags);
    EXPECT_EQ("ready", server_->ReadLine());
  }
};

TEST_F(ShopTest, ServicesOfAServerAreListed) {
  EXPECT_EQ("shop.Shop\nshop.Warehouse\nrpc.reflection.ServerReflection\n",
            Print({"list"}));
}

TEST_F(ShopTest, MethodsOfAServiceAreListedWithTheirKinds) {
  const std::string list = Print({"list", "shop.Shop"});
  EXPECT_THAT(list,
              ContainsRegex("^GetPrice +BrowserId +shop\\.Price +unary\n"));
  EXPECT_THAT(list, ContainsRegex("\nWhenPriceChanges +rpc\\.EventSubscription "
                                  "+shop\\.Price +event stream\n"));
  EXPECT_THAT(list, ContainsRegex("\nMayDiscount +shop\\.Discount "
                                  "+shop\\.Discount +callback stream\n"));
}

TEST_F(ShopTest, ServiceThatIsNotOfferedIsAnsweredWithTheNearestName) {
  EXPECT_EQ(
      "rpcctl: The server offers no service shop.Shops. Did you mean "
      "shop.Shop?\n",
      Fault(kUsage, {"list", "shop.Shops"}));
}

TEST_F(ShopTest, DeclarationsAreDescribed) {
  EXPECT_THAT(Print({"describe", "shop.Warehouse"}),
              HasSubstr("service Warehouse {\n  rpc GetPrice(.BrowserId)"));
  EXPECT_THAT(Print({"describe", "shop.Currency"}),
              HasSubstr("CURRENCY_EURO = 1;"));
  EXPECT_THAT(Print({"describe", "shop.Discount.Response"}),
              HasSubstr("message Response {\n  bool allowed = 1;\n}\n"));
  const std::string method = Print({"describe", "shop.Shop.GetPrice"});
  EXPECT_THAT(method, StartsWith("shop.Shop.GetPrice: unary\n"));
  EXPECT_THAT(method, HasSubstr("\nRequest BrowserId\n  value  int64\n"));
  EXPECT_THAT(method, HasSubstr("\nResponse shop.Price\n"));
  EXPECT_THAT(method, HasSubstr("\n  valid_for.seconds  int64\n"));
  EXPECT_EQ(method, Print({"describe", "Shop.GetPrice"}));
  EXPECT_EQ(
      "rpcctl: GetPrice could be shop.Shop.GetPrice or "
      "shop.Warehouse.GetPrice.\n",
      Fault(kUsage, {"describe", "GetPrice"}));
  EXPECT_EQ("rpcctl: The server's files declare no shop.Nothing.\n",
            Fault(kUsage, {"describe", "shop.Nothing"}));
}

TEST_F(ShopTest, MethodsAreCalledWithJson) {
  const std::string price =
      "{\"cents\":\"250\",\"currency\":\"CURRENCY_EURO\","
      "\"validFor\":\"90s\"}\n";
  EXPECT_EQ(price, Print({"call", "shop.Shop.SetPrice",
                          R"({"article": {"value": 7}, "price": {"cents": 250,
                       "currency": "CURRENCY_EURO", "validFor": "90s"}})"}));
  EXPECT_EQ(price, Print({"call", "Shop.GetPrice", R"({"value": 7})"}));
}

TEST_F(ShopTest, FailureOfACallIsSaidWithEscapes) {
  EXPECT_EQ("rpcctl: NOT_FOUND: No such article.\\x1b[2J\n",
            Fault(kCallFailed, {"call", "Shop.GetPrice", R"({"value": 1})"}));
  EXPECT_EQ(
      "rpcctl: UNIMPLEMENTED: Method GetPrice() not implemented.\n",
      Fault(kCallFailed, {"call", "Warehouse.GetPrice", R"({"value": 1})"}));
}

TEST_F(ShopTest, WrongMethodOrRequestIsSaid) {
  EXPECT_EQ(
      "rpcctl: GetPrice could be shop.Shop.GetPrice or "
      "shop.Warehouse.GetPrice.\n",
      Fault(kUsage, {"call", "GetPrice", "{}"}));
  EXPECT_EQ(
      "rpcctl: There is no method SetPrcie. Did you mean SetPrice? 'rpcctl "
      "list SERVICE' lists them all.\n",
      Fault(kUsage, {"call", "SetPrcie", "{}"}));
  EXPECT_EQ(
      "rpcctl: MayDiscount is of the kind 'callback stream': use 'rpcctl "
      "answer MayDiscount KEY...'.\n",
      Fault(kUsage, {"watch", "MayDiscount", "7"}));
  EXPECT_THAT(Fault(kUsage, {"call", "SetPrice", R"({"articel": {}})"}),
              HasSubstr("articel: Cannot find field."));
  EXPECT_EQ("rpcctl: Name at least one key.\n",
            Fault(kUsage, {"watch", "WhenPriceChanges"}));
  EXPECT_THAT(Fault(kUsage, {"watch", "WhenPriceChanges", "seven"}),
              StartsWith("rpcctl: 'seven' is no key: The JSON does not fit: "));
}

TEST_F(ShopTest, EventsAreWatched) {
  const auto watch =
      StartStream({"watch", "WhenPriceChanges", "7", R"({"value": 8})"});
  for (const char* const article : {"7", "9", "8"}) {
    Print({"call", "SetPrice",
           std::string(R"({"article": {"value": )") + article +
               R"(}, "price": {"cents": )" + article + "}}"});
  }
  EXPECT_EQ(R"({"cents":"7","currency":"CURRENCY_UNSPECIFIED"})",
            watch->ReadLine());
  EXPECT_EQ(R"({"cents":"8","currency":"CURRENCY_UNSPECIFIED"})",
            watch->ReadLine());
  ExpectInterruptible(*watch);
}

constexpr char kQuestion[] =
    R"({"browserId": {"value": 7}, "question": {"percent": 20}})";

TEST_F(ShopTest, QuestionsAreAnsweredWithTheSameAnswer) {
  const auto answer = StartStream(
      {"answer", "MayDiscount", "7", "--with", R"({"allowed": true})"});
  EXPECT_EQ(
      "{\"browserId\":{\"value\":\"7\"},\"response\":{\"allowed\":true}}\n",
      Print({"call", "AskForDiscount", kQuestion}));
  EXPECT_EQ(R"({"browserId":{"value":"7"},"question":{"percent":"20",)"
            R"("answerWithinMs":0}})",
            answer->ReadLine());
  ExpectInterruptible(*answer);
}

TEST_F(ShopTest, QuestionsAreAnsweredByACommand) {
  const auto answer =
      StartStream({"answer", "MayDiscount", "7", "--exec",
                   R"(grep -q '"percent":"20"' && echo '{"allowed": true}')"});
  EXPECT_THAT(Print({"call", "AskForDiscount", kQuestion}),
              HasSubstr("\"allowed\":true"));
  ExpectInterruptible(*answer);
}

TEST_F(ShopTest, AnswerThatIsNoMessageIsTakenToo) {
  const auto answer = StartStream({"answer", "HowMany", "7", "--with", "42"});
  EXPECT_EQ("{\"browserId\":{\"value\":\"7\"},\"response\":\"42\"}\n",
            Print({"call", "AskForCount", R"({"value": 7})"}));
  ExpectInterruptible(*answer);
}

TEST_F(ShopTest, QuestionWithoutAUsableAnswerIsDeclined) {
  const auto answer =
      StartStream({"answer", "MayDiscount", "7", "--exec", "echo '{}}'"});
  EXPECT_EQ("rpcctl: ABORTED: Declined.\n",
            Fault(kCallFailed, {"call", "AskForDiscount", kQuestion}));
  EXPECT_THAT(answer->ReadErrorLine(),
              StartsWith("rpcctl: Not answered: The JSON does not fit: "));
}

TEST_F(ShopTest, AnswerThatFitsNoQuestionIsWrongUsage) {
  EXPECT_THAT(Fault(kUsage, {"answer", "MayDiscount", "7", "--with",
                             R"({"alowed": true})"}),
              HasSubstr("alowed: Cannot find field."));
  EXPECT_EQ("rpcctl: Choose between --with and --exec.\n",
            Fault(kUsage, {"answer", "MayDiscount", "7", "--with", "{}",
                           "--exec", "true"}));
}

TEST_F(ShopTest, PersonAtATerminalIsAskedWithTheKeyAndTheTime) {
  const auto answer =
      StartStream({"answer", "MayDiscount", "7"}, Process::Terminal::kInput);
  Process call(ClientWords(
      {"call", "AskForDiscount",
       R"({"browserId": {"value": 7}, "question": {"answerWithinMs": 60000}})"}));
  EXPECT_THAT(
      answer->ReadErrorLine(),
      ContainsRegex(R"(^rpcctl: What is the answer to MayDiscount about )"
                    R"(\{"value":"7"\}\? You have [0-9.]+ s\.$)"));
  answer->Write("{\"allowed\": true}\n");
  EXPECT_THAT(call.Wait().output, HasSubstr("\"allowed\":true"));
  ExpectInterruptible(*answer);
}

TEST_F(ShopTest, QuestionThatNobodyAnswersFails) {
  EXPECT_EQ("rpcctl: UNAVAILABLE: Nobody answers.\n",
            Fault(kCallFailed, {"call", "AskForDiscount", kQuestion}));
}

TEST_F(ShopTest, LostServerEndsTheWatch) {
  const auto watch = StartStream({"watch", "WhenPriceChanges", "7"});
  server_->Signal(SIGKILL);
  const Process::Result result = watch->Wait();
  EXPECT_EQ(kNoConnection, result.exit_code);
  EXPECT_THAT(result.errors, StartsWith("rpcctl: UNAVAILABLE: "));
}

TEST_F(ShopTest, ServerWithoutAStatusSaysSo) {
  EXPECT_THAT(Fault(kCallFailed, {"status"}),
              StartsWith("rpcctl: UNIMPLEMENTED: the server has no service "
                         "rpc.status.ServerStatus"));
}

TEST_F(RpcctlTest, ServerWithoutReflectionSaysSo) {
  server_ = std::make_unique<Process>(
      std::vector<std::string>{SHOP_SERVER, socket_, "--silent"});
  EXPECT_EQ("ready", server_->ReadLine());
  for (const std::vector<std::string>& words :
       {std::vector<std::string>{"list"},
        {"list", "shop.Shop"},
        {"describe", "shop.Shop"},
        {"call", "GetPrice", "{}"},
        {"watch", "WhenPriceChanges", "7"},
        {"answer", "MayDiscount", "7"}}) {
    EXPECT_EQ(
        "rpcctl: UNIMPLEMENTED: the server offers no reflection: it does not "
        "say what its services look like\n",
        Fault(kCallFailed, words));
  }
}

TEST_F(RpcctlTest, AbsentServerIsSaidWithItsSocket) {
  const std::string fault = Fault(kNoConnection, {"list"});
  EXPECT_THAT(fault, HasSubstr(socket_));
  EXPECT_THAT(fault, HasSubstr("Is the server running"));
}

TEST_F(RpcctlTest, SocketMustBeNamed) {
  const Process::Result result = RunToEnd({RPCCTL, "list"});
  EXPECT_EQ(kUsage, result.exit_code);
  EXPECT_EQ(
      "rpcctl: --socket PATH is missing: where the server listens. 'rpcctl "
      "--help' says more.\n",
      result.errors);
}

TEST_F(RpcctlTest, HelpIsThereForTheProgramAndForEachCommand) {
  const std::string general = RunToEnd({RPCCTL, "--help"}).output;
  EXPECT_THAT(general, HasSubstr("\n  call METHOD REQUEST "));
  for (const char* const command :
       {"list", "describe", "call", "watch", "answer", "status"}) {
    const Process::Result result = RunToEnd({RPCCTL, command, "--help"});
    EXPECT_EQ(kSuccess, result.exit_code);
    EXPECT_EQ("", result.errors);
    EXPECT_THAT(result.output,
                StartsWith(std::string("rpcctl ") + command + ": "));
    EXPECT_THAT(general, HasSubstr(std::string("\n  ") + command + " "));
  }
}

TEST_F(RpcctlTest, VersionIsPrinted) {
  EXPECT_THAT(RunToEnd({RPCCTL, "--version"}).output,
              ContainsRegex("^rpcctl [0-9]+\\.[0-9]+\\.[0-9]+\n$"));
}

TEST_F(RpcctlTest, WrongUsageSaysWhatIsWrongBeforeConnecting) {
  const struct {
    std::vector<std::string> words;
    const char* fault;
  } cases[] = {
      {{}, "A command is missing. 'rpcctl --help' says more."},
      {{"lst"}, "There is no command 'lst'. Did you mean list?"},
      {{"list", "a", "b"}, "'list' takes a service, or nothing."},
      {{"describe"}, "'describe' takes a method, or the full name of"},
      {{"call", "X"}, "'call' takes a method and its request."},
      {{"watch"}, "'watch' takes a method and keys."},
      {{"answer"}, "'answer' takes a method and keys."},
      {{"status", "all"}, "'status' takes no arguments."},
      {{"list", "--json"}, "The flag --json is for 'status' only."},
      {{"watch", "X", "7", "--reconnect"}, "There is no flag --reconnect."},
  };
  for (const auto& [words, fault] : cases)
    EXPECT_THAT(Fault(kUsage, words), HasSubstr(fault));
}

// The same as windowctl does, without its contract.
TEST_F(RpcctlTest, WindowHostIsUsedThroughWhatItSaysOfItself) {
  server_ = std::make_unique<Process>(std::vector<std::string>{
      WINDOW_HOST, "--socket", socket_, "--windows", "2"});
  EXPECT_EQ("window_host: ready at " + socket_, server_->ReadLine());
  EXPECT_EQ(
      "rpc.BrowserWindow\nrpc.status.ServerStatus\n"
      "rpc.directory.WindowDirectory\n"
      "rpc.reflection.ServerReflection\n",
      Print({"list"}));
  EXPECT_EQ("\"Window 1\"\n", Print({"call", "GetTitle", R"({"value": 1})"}));
  EXPECT_THAT(Print({"call", "GetStatus", "{}"}),
              HasSubstr("\"name\":\"rpcctl\""));
  EXPECT_THAT(Print({"status"}), HasSubstr("rpcctl"));
  const auto watch = StartStream({"watch", "WhenBrowserWindowClosed", "1"});
  const auto answer = StartStream(
      {"answer", "OnCloseWindow", "1", "--with", R"({"allowed": true})"});
  EXPECT_EQ("true\n", Print({"call", "Close", R"({"value": 1})"}));
  EXPECT_THAT(watch->ReadLine(), StartsWith(R"({"browserId":{"value":"1"},)"));
}

}  // namespace
}  // namespace rpcctl
