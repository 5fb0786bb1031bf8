// A client and a server of version 1 of the protocol as it was first published,
// beside those of today. The old side is made of the old schema, which is
// loaded from testdata/first at run time: what it sends is what an old program
// sends, and what it makes of a message is what an old program reads in it.

#include <gmock/gmock.h>
#include <google/protobuf/descriptor.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <fstream>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>

#include "absl/log/absl_check.h"
#include "absl/strings/str_cat.h"
#include "core/common/rpc/conformance/ages/first_schema_test_support.h"
#include "core/common/rpc/serving/ask_within.h"
#include "core/common/rpc/serving/limit_table.h"
#include "core/common/rpc/serving/limits.h"
#include "core/common/rpc/status/status_service.h"
#include "core/common/rpc/testing/socket_pair.h"
#include "core/common/rpc/testing/window_id.h"
#include "core/common/rpc/transport/event_subscriber.h"
#include "core/common/rpc/transport/testing/lab.h"
#include "rpc/browser/browser_window.pb.h"
#include "rpc/browser/browser_window.rpc.h"
#include "rpc/status/server_status.pb.h"

namespace rpc {
namespace {

using google::protobuf::Descriptor;
using google::protobuf::DescriptorPool;
using google::protobuf::FieldDescriptor;
using google::protobuf::FileDescriptor;
using serving::QuestionOutcome;
using std::chrono::hours;
using std::chrono::milliseconds;
using ::testing::ElementsAre;
using transport::Frame;
using transport::Lab;
using transport::RawPeer;

// What has been added to the messages of a schema, and what has changed or
// gone.
class Difference {
 public:
  void Compare(const FileDescriptor& first) {
    const FileDescriptor* now =
        DescriptorPool::generated_pool()->FindFileByName(first.name());
    ABSL_CHECK(now != nullptr) << first.name();
    for (int i = 0; i < first.message_type_count(); ++i) {
      Compare(*first.message_type(i),
              now->FindMessageTypeByName(first.message_type(i)->name()));
    }
    for (int i = 0; i < first.enum_type_count(); ++i) {
      Compare(*first.enum_type(i),
              now->FindEnumTypeByName(first.enum_type(i)->name()));
    }
    for (int i = 0; i < first.service_count(); ++i) {
      Compare(*first.service(i),
              now->FindServiceByName(first.service(i)->name()));
    }
  }

  const std::set<std::string>& added() const { return added_; }
  const std::set<std::string>& changed() const { return changed_; }

 private:
  void Compare(const Descriptor& first, const Descriptor* now) {
    if (now == nullptr) {
      changed_.insert(first.full_name());
      return;
    }
    for (int i = 0; i < first.field_count(); ++i) {
      const FieldDescriptor* field =
          now->FindFieldByNumber(first.field(i)->number());
      if (field == nullptr || !AreTheSame(*first.field(i), *field)) {
        changed_.insert(first.field(i)->full_name());
      }
    }
    for (int i = 0; i < now->field_count(); ++i) {
      if (first.FindFieldByNumber(now->field(i)->number()) == nullptr) {
        added_.insert(now->field(i)->full_name());
      }
    }
    for (int i = 0; i < first.nested_type_count(); ++i) {
      Compare(*first.nested_type(i),
              now->FindNestedTypeByName(first.nested_type(i)->name()));
    }
    for (int i = 0; i < first.enum_type_count(); ++i) {
      Compare(*first.enum_type(i),
              now->FindEnumTypeByName(first.enum_type(i)->name()));
    }
  }

  void Compare(const google::protobuf::EnumDescriptor& first,
               const google::protobuf::EnumDescriptor* now) {
    ABSL_CHECK(now != nullptr) << first.full_name();
    for (int i = 0; i < first.value_count(); ++i) {
      const auto* value = now->FindValueByNumber(first.value(i)->number());
      if (value == nullptr || value->name() != first.value(i)->name()) {
        changed_.insert(first.value(i)->full_name());
      }
    }
    for (int i = 0; i < now->value_count(); ++i) {
      if (first.FindValueByNumber(now->value(i)->number()) == nullptr) {
        added_.insert(now->value(i)->full_name());
      }
    }
  }

  void Compare(const google::protobuf::ServiceDescriptor& first,
               const google::protobuf::ServiceDescriptor* now) {
    ABSL_CHECK(now != nullptr) << first.full_name();
    for (int i = 0; i < first.method_count(); ++i) {
      const auto* method = now->FindMethodByName(first.method(i)->name());
      if (method == nullptr ||
          method->input_type()->full_name() !=
              first.method(i)->input_type()->full_name() ||
          method->output_type()->full_name() !=
              first.method(i)->output_type()->full_name() ||
          method->client_streaming() != first.method(i)->client_streaming() ||
          method->server_streaming() != first.method(i)->server_streaming()) {
        changed_.insert(first.method(i)->full_name());
      }
    }
    for (int i = 0; i < now->method_count(); ++i) {
      if (first.FindMethodByName(now->method(i)->name()) == nullptr) {
        added_.insert(now->method(i)->full_name());
      }
    }
  }

  // A number may become wider: it is written in the same way.
  static bool AreTheSame(const FieldDescriptor& first,
                         const FieldDescriptor& now) {
    return first.name() == now.name() && first.label() == now.label() &&
           Widest(first.type()) == Widest(now.type()) &&
           (first.message_type() == nullptr ||
            first.message_type()->full_name() ==
                now.message_type()->full_name());
  }

  static FieldDescriptor::Type Widest(FieldDescriptor::Type type) {
    switch (type) {
      case FieldDescriptor::TYPE_INT32:
        return FieldDescriptor::TYPE_INT64;
      case FieldDescriptor::TYPE_UINT32:
        return FieldDescriptor::TYPE_UINT64;
      default:
        return type;
    }
  }

  std::set<std::string> added_;
  std::set<std::string> changed_;
};

class WindowService final : public BrowserWindowRpc {};

transport::ServerOptions WithLimits(const serving::Limits& limits) {
  transport::ServerOptions options;
  options.limits = limits;
  return options;
}

// A server of today, and an old client of it.
class FirstClient {
 public:
  explicit FirstClient(const serving::Limits& limits = {})
      : lab_(WithLimits(limits)), peer_(lab_.loop, lab_.Connect()) {
    lab_.server->AddService(&windows_);
    lab_.server->AddService(&status_);
  }

  std::string Greet() {
    Say("hello { protocol_version: 1 max_frame_bytes: 1048576 "
        "client_name: 'old' }");
    return Hear();
  }

  void Say(const std::string& body) {
    peer_.SendBytes(schema_.WriteFrame(body));
  }

  // The next frame as the server has sent it.
  Frame Receive() {
    const std::optional<Frame> frame = peer_.Receive();
    ABSL_CHECK(frame) << "the server has closed the connection";
    return *frame;
  }

  // The next frame as the old client reads it.
  std::string Hear() {
    return schema_.Read("rpc.transport.Frame", Receive().SerializeAsString());
  }

  uint64_t IdOf(const std::string& method) const { return peer_.IdOf(method); }
  FirstSchema& schema() { return schema_; }
  Lab& lab() { return lab_; }

 private:
  FirstSchema schema_;
  // They outlive the server.
  WindowService windows_;
  status::StatusService status_{[this] { return lab_.server->Report(); }};
  Lab lab_;
  RawPeer peer_;
};

Difference DifferenceToFirst() {
  FirstSchema schema;
  Difference difference;
  for (const char* file :
       {"browser_id.proto", "rpc/event_subscription.proto",
        "rpc/transport/stream_message.proto", "rpc/transport/frame.proto",
        "rpc/status/server_status.proto", "rpc/browser/browser_window.proto"}) {
    difference.Compare(*schema.File(file));
  }
  return difference;
}

// What docs/wire-protocol.md says of additions: the first cells of the rows of
// its table, all in one.
std::string AdditionsOfThePage() {
  std::ifstream page(WIRE_PROTOCOL_PAGE);
  std::string line;
  while (std::getline(page, line) && line != "## What version 1 has grown by") {
  }
  std::string cells;
  while (std::getline(page, line) && !line.starts_with("## ")) {
    if (line.starts_with("| ")) {
      cells += line.substr(0, line.find(" |"));
    }
  }
  return cells;
}

// A field, a value or a method that is added later makes this fail, so that
// nobody forgets to say and to test what an older peer makes of it: below, and
// in docs/wire-protocol.md.
TEST(FirstVersion, HasWhatItHadAndNothingMoreThanTheseFields) {
  const Difference difference = DifferenceToFirst();
  EXPECT_THAT(difference.changed(), ElementsAre());
  EXPECT_THAT(difference.added(),
              ElementsAre("rpc.CanExecuteCommand.Question.answer_within_ms",
                          "rpc.CloseWindow.Question.answer_within_ms",
                          "rpc.ShowContextMenu.Question.answer_within_ms",
                          "rpc.status.Load.subscriptions",
                          "rpc.status.StatusReport.messages_refused",
                          "rpc.transport.OfferedMethod.stream_kind"));
}

TEST(FirstVersion, HasARowOfThePageForEachAddition) {
  const std::string cells = AdditionsOfThePage();
  const Difference difference = DifferenceToFirst();
  for (const std::string& name : difference.added()) {
    EXPECT_THAT(cells, ::testing::ContainsRegex(absl::StrCat(
                           "[`.]", name.substr(name.rfind('.') + 1), "`")));
  }
}

TEST(FirstVersionOfAClient, ReadsInTheWelcomeWhatItKnows) {
  FirstClient client;
  EXPECT_THAT(
      client.Greet(),
      ::testing::StartsWith(
          "welcome { protocol_version: 1 max_frame_bytes: 65536 services { "
          "full_name: \"lab.Lab\" methods { name: \"Echo\" } "
          "methods { name: \"Fail\" id: 1 } methods { name: \"Park\" id: 2 } "
          "methods { name: \"Make\" id: 3 } methods { name: \"Forget\" id: 4 } "
          "methods { name: \"Watch\" id: 5 streaming: true } "
          "methods { name: \"Decide\" id: 6 streaming: true } } services { "
          "full_name: \"rpc.BrowserWindow\" methods { name: \"Show\" id: 7 }"));
}

TEST(FirstVersionOfAClient, ReadsTheLargestLimitAsItIs) {
  serving::Limits limits;
  for (const serving::LimitInfo& limit : serving::kLimitTable) {
    if (limit.size != nullptr) {
      limits.*limit.size = static_cast<size_t>(limit.most);
    }
  }
  FirstClient client(limits);
  EXPECT_THAT(client.Greet(),
              ::testing::StartsWith(absl::StrCat(
                  "welcome { protocol_version: 1 max_frame_bytes: ",
                  limits.max_client_frame_bytes, " services {")));
}

TEST(FirstVersionOfAClient, IsAnsweredWhenItCalls) {
  FirstClient client;
  client.Greet();
  // "x" as a Text.
  client.Say(absl::StrCat("call { call_id: 1 method_id: ", client.IdOf("Echo"),
                          " request: '\\n\\001x' }"));
  EXPECT_EQ(client.Hear(), "reply { call_id: 1 response: \"\\n\\001x\" }");
  client.Say(absl::StrCat("call { call_id: 2 method_id: ", client.IdOf("Fail"),
                          " request: '\\n\\001x' }"));
  EXPECT_EQ(client.Hear(),
            "reply { call_id: 2 status { code: 2 text: \"x\" } }");
  client.Say("call { call_id: 3 method_id: 4294967295 }");
  EXPECT_EQ(client.Hear(),
            "reply { call_id: 3 status { code: 12 text: "
            "\"no method has the id 4294967295\" } }");
}

TEST(FirstVersionOfAClient, MayWaitForAsLongAsItCanSay) {
  FirstClient client;
  client.Greet();
  serving::CallContext::Deadline deadline;
  client.lab().service.on_echo = [&](serving::CallContext* context) {
    deadline = context->deadline();
  };
  client.Say(absl::StrCat("call { call_id: 1 method_id: ", client.IdOf("Echo"),
                          " timeout_ms: 4294967295 }"));
  EXPECT_EQ(client.Hear(), "reply { call_id: 1 }");
  ASSERT_TRUE(deadline);
  const auto now = std::chrono::steady_clock::now();
  EXPECT_GT(*deadline, now + hours(24 * 49));
  EXPECT_LT(*deadline, now + hours(24 * 50));
}

// Of 32 bits it is written with 64, and so it was.
TEST(FirstVersionOfAClient, MayEndAStreamWithANegativeStatus) {
  FirstClient client;
  client.Greet();
  client.Say(absl::StrCat(
      "stream_open { stream_id: 1 method_id: ", client.IdOf("Watch"), " }"));
  client.Say("stream_end { stream_id: 1 status { code: -1 } }");
  EXPECT_EQ(client.Hear(), "stream_end { stream_id: 1 }");
}

// It does not read of which kind a stream is. What it sends there belongs to
// the other kind, and is not taken for anything else.
TEST(FirstVersionOfAClient, IsRefusedOnAStreamOfTheOtherKind) {
  FirstClient client;
  client.Greet();
  // A subscription to events, on a stream of questions.
  client.Say(absl::StrCat("stream_open { stream_id: 1 method_id: ",
                          client.IdOf("OnCloseWindow"), " }"));
  client.Say(
      "stream_data { stream_ids: 1 message { payload: '\\n\\002\\010\\007' } "
      "}");
  EXPECT_EQ(client.Hear(),
            "stream_end { stream_id: 1 status { code: 3 text: \"a message on a "
            "stream of questions neither subscribes nor answers\" } }");
  // A subscription to questions, on a stream of events.
  client.Say(absl::StrCat("stream_open { stream_id: 2 method_id: ",
                          client.IdOf("WhenBrowserWindowClosed"), " }"));
  client.Say(
      "stream_data { stream_ids: 2 message { "
      "payload: '\\n\\002\\010\\007\\020\\001' } }");
  EXPECT_EQ(client.Hear(),
            "stream_end { stream_id: 2 status { code: 3 text: \"a subscription "
            "has fields that its message type does not know\" } }");
}

// Asks the old client, who answers; `question` and `response` are what it reads
// and says.
template <typename T>
void ExpectAnswered(const std::string& method,
                    const T& asked,
                    const std::string& question,
                    const std::string& response) {
  SCOPED_TRACE(method);
  const std::string type = T::descriptor()->full_name();
  FirstClient client;
  client.Greet();
  client.Say(absl::StrCat(
      "stream_open { stream_id: 1 method_id: ", client.IdOf(method), " }"));
  const auto send = [&](const std::string& fields, int64_t call_id) {
    transport::StreamDataFrame data;
    data.add_stream_ids(1);
    data.mutable_message()->set_payload(client.schema().Write(type, fields));
    data.mutable_message()->set_call_id(call_id);
    client.Say(absl::StrCat("stream_data { ", data.ShortDebugString(), " }"));
  };
  send("browser_id { value: 7 } subscribe: true", 0);
  client.lab().RunReady();

  std::optional<QuestionOutcome> outcome;
  T answer;
  serving::AskWithin<T>(client.lab().loop, hours(1), asked,
                        [&](QuestionOutcome settled, const T& with) {
                          outcome = settled;
                          answer = with;
                        });
  const Frame frame = client.Receive();
  ASSERT_TRUE(frame.has_stream_data());
  const transport::StreamMessage& message = frame.stream_data().message();
  T today;
  ASSERT_TRUE(today.ParseFromString(message.payload()));
  EXPECT_EQ(today.question().answer_within_ms(), 3'600'000u);
  EXPECT_EQ(
      client.schema().Read(type, message.payload()),
      absl::StrCat("browser_id { value: 7 } question { ", question, " }"));

  send(absl::StrCat("browser_id { value: 7 } response { ", response, " }"),
       message.call_id());
  client.lab().RunUntil([&] { return outcome.has_value(); });
  EXPECT_EQ(*outcome, QuestionOutcome::kAnswered);
  EXPECT_EQ(answer.response().ShortDebugString(), response);
}

TEST(FirstVersionOfAClient, AnswersQuestionsThatSayHowLongTheyAreWaitedFor) {
  CloseWindow close;
  *close.mutable_browser_id() = torvane::WindowId(7);
  close.mutable_question()->set_reason(WINDOW_CLOSE_REASON_USER);
  ExpectAnswered("OnCloseWindow", close, "reason: WINDOW_CLOSE_REASON_USER",
                 "allowed: true");

  CanExecuteCommand command;
  *command.mutable_browser_id() = torvane::WindowId(7);
  command.mutable_question()->mutable_command()->set_id(3);
  ExpectAnswered("OnCanExecuteCommand", command, "command { id: 3 }",
                 "allowed: true");

  ShowContextMenu menu;
  *menu.mutable_browser_id() = torvane::WindowId(7);
  menu.mutable_question()->set_x(5);
  ExpectAnswered("OnShowContextMenu", menu, "x: 5",
                 "handled: true omitted_command_ids: 4");
}

TEST(FirstVersionOfAClient, ReadsInAStatusReportWhatItKnows) {
  FirstClient client;
  client.Greet();
  // A message that neither subscribes nor answers, and a subscription, so that
  // there is something to report that the client does not know.
  client.Say(absl::StrCat("stream_open { stream_id: 1 method_id: ",
                          client.IdOf("OnCloseWindow"), " }"));
  client.Say("stream_data { stream_ids: 1 message { } }");
  EXPECT_THAT(
      client.Hear(),
      ::testing::StartsWith("stream_end { stream_id: 1 status { code: 3 "));
  client.Say(absl::StrCat("stream_open { stream_id: 2 method_id: ",
                          client.IdOf("WhenBrowserWindowClosed"), " }"));
  client.Say(
      "stream_data { stream_ids: 2 message { payload: '\\n\\002\\010\\007' } "
      "}");

  client.Say(absl::StrCat(
      "call { call_id: 1 method_id: ", client.IdOf("GetStatus"), " }"));
  const Frame frame = client.Receive();
  ASSERT_TRUE(frame.has_reply());
  status::StatusReport report;
  ASSERT_TRUE(report.ParseFromString(frame.reply().response()));
  EXPECT_EQ(report.messages_refused(), 1u);
  report.clear_messages_refused();
  ASSERT_EQ(report.connections_size(), 1);
  for (status::Load* load : {report.mutable_total(),
                             report.mutable_connections(0)->mutable_load()}) {
    EXPECT_EQ(load->subscriptions(), 1u);
    load->clear_subscriptions();
  }
  EXPECT_EQ(
      client.schema().Read("rpc.status.StatusReport", frame.reply().response()),
      report.ShortDebugString());
}

// A client of today, and an old server that offers a stream of the lab.
class FirstServer {
 public:
  FirstServer() : FirstServer(torvane::SocketPair()) {}

  // The next frame as the old server reads it.
  std::string Hear() {
    const std::optional<Frame> frame = peer_.Receive();
    ABSL_CHECK(frame) << "the client has closed the connection";
    return schema_.Read("rpc.transport.Frame", frame->SerializeAsString());
  }

  transport::Client& client() { return *client_; }

 private:
  explicit FirstServer(std::pair<loop::ScopedFd, loop::ScopedFd> sockets)
      : peer_(loop_, std::move(sockets.first)) {
    peer_.SendBytes(schema_.WriteFrame(
        "welcome { protocol_version: 1 max_frame_bytes: 1048576 services { "
        "full_name: 'lab.Lab' methods { name: 'Watch' id: 9 streaming: true } "
        "} }"));
    auto client = transport::Client::Adopt(loop_, std::move(sockets.second));
    ABSL_CHECK(client.ok()) << client.status();
    client_ = *std::move(client);
  }

  FirstSchema schema_;
  loop::Loop loop_;
  RawPeer peer_;
  std::unique_ptr<transport::Client> client_;
};

TEST(FirstVersionOfAServer, IsTakenToHaveTheKindOfStreamThatTheClientWants) {
  FirstServer server;
  transport::EventSubscriber<lab::Text> subscriber(
      server.client(), lab::Lab::descriptor()->FindMethodByName("Watch"),
      [](const lab::Text&) {});
  subscriber.Subscribe(torvane::WindowId(7));
  EXPECT_EQ(server.Hear(),
            "hello { protocol_version: 1 max_frame_bytes: 4194304 }");
  EXPECT_EQ(server.Hear(), "stream_open { stream_id: 1 method_id: 9 }");
  EXPECT_EQ(server.Hear(),
            "stream_data { stream_ids: 1 message { payload: "
            "\"\\n\\002\\010\\007\" } }");
}

}  // namespace
}  // namespace rpc
