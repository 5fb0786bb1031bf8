#include "core/common/rpc/transport/dynamic_streams.h"

#include <google/protobuf/descriptor.pb.h>
#include <google/protobuf/dynamic_message.h>
#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "core/common/rpc/stream/callback_stream.h"
#include "core/common/rpc/stream/event_stream.h"
#include "core/common/rpc/testing/window_id.h"
#include "core/common/rpc/transport/testing/lab.h"

namespace rpc::transport {
namespace {

using google::protobuf::Descriptor;
using google::protobuf::DescriptorPool;
using google::protobuf::FileDescriptor;
using google::protobuf::FileDescriptorProto;
using google::protobuf::Message;
using google::protobuf::MethodDescriptor;
using torvane::WindowId;

// The file as one that has come at run time.
const FileDescriptor* Load(const FileDescriptor& file, DescriptorPool& pool) {
  if (const FileDescriptor* loaded = pool.FindFileByName(file.name())) {
    return loaded;
  }
  for (int i = 0; i < file.dependency_count(); ++i) {
    Load(*file.dependency(i), pool);
  }
  FileDescriptorProto copy;
  file.CopyTo(&copy);
  return pool.BuildFile(copy);
}

class DynamicStreams : public ::testing::Test {
 protected:
  DynamicStreams() { Load(*lab::Lab::descriptor()->file(), pool_); }

  const MethodDescriptor* Method(const std::string& name) const {
    return pool_.FindMethodByName("lab.Lab." + name);
  }

  std::unique_ptr<Message> New(const Descriptor* type) {
    return std::unique_ptr<Message>(factory_.GetPrototype(type)->New());
  }

  std::unique_ptr<Message> Key(const MethodDescriptor* method, int64_t value) {
    auto key = New(KeyTypeOf(*method));
    key->ParseFromString(WindowId(value).SerializeAsString());
    return key;
  }

  // A message of Decide with that response.
  std::unique_ptr<Message> Answer(const std::string& text) {
    lab::Decision answer;
    answer.mutable_response()->set_text(text);
    auto message = New(Method("Decide")->output_type());
    message->ParseFromString(answer.SerializeAsString());
    return message;
  }

  // Asks about window 1, and notes how that ends.
  void Ask() {
    lab::Decision question;
    question.mutable_question()->set_text("why?");
    EXPECT_TRUE(Ask(question));
  }
  bool Ask(lab::Decision question) {
    *question.mutable_browser_id() = WindowId(1);
    return torvane::CallbackStream<lab::Decision>::Ask(
        question, {.response_callback =
                       [this](lab::Decision& answer) {
                         outcomes_.push_back("=" + answer.response().text());
                       },
                   .error_callback =
                       [this](torvane::StreamCallError error) {
                         outcomes_.push_back(
                             error == torvane::StreamCallError::kRemoteError
                                 ? "declined"
                                 : "cancelled");
                       }});
  }

  // Opens a stream of questions, subscribed to window 1.
  void OpenAnswerer() {
    answerer_.emplace(
        *client_, Method("Decide"), factory_,
        [this](const Message& question, DynamicCallbackAnswerer::Reply reply) {
          questions_.push_back(question.ShortDebugString());
          replies_.push_back(std::move(reply));
        },
        [this](const absl::Status& status) { ends_.push_back(status); });
    EXPECT_TRUE(answerer_->Subscribe(*Key(Method("Decide"), 1)));
    lab_.RunReady();
  }

  DescriptorPool pool_;
  google::protobuf::DynamicMessageFactory factory_{&pool_};
  Lab lab_;
  std::unique_ptr<Client> client_ = lab_.NewClient();
  std::vector<absl::Status> ends_;
  std::vector<std::string> outcomes_;
  std::vector<std::string> questions_;
  std::optional<DynamicCallbackAnswerer> answerer_;
  std::vector<DynamicCallbackAnswerer::Reply> replies_;
};

TEST_F(DynamicStreams, KeyTypesAreThoseOfStreamsOnly) {
  const Descriptor* key = pool_.FindMessageTypeByName("BrowserId");
  EXPECT_EQ(KeyTypeOf(*Method("Watch")), key);
  EXPECT_EQ(KeyTypeOf(*Method("Decide")), key);
  EXPECT_EQ(KeyTypeOf(*Method("Echo")), nullptr);
}

TEST_F(DynamicStreams, EventsComeForTheKeysThatAreSubscribedTo) {
  std::vector<std::string> events;
  DynamicEventSubscriber subscriber(
      *client_, Method("Watch"), factory_,
      [&](const Message& event) { events.push_back(event.DebugString()); },
      [this](const absl::Status& status) { ends_.push_back(status); });
  EXPECT_TRUE(subscriber.Subscribe(*Key(Method("Watch"), 1)));
  lab_.RunReady();
  lab::Text event;
  event.set_text("closed");
  EXPECT_EQ(torvane::EventStream<lab::Text>::Publish(WindowId(2), event), 0u);
  EXPECT_EQ(torvane::EventStream<lab::Text>::Publish(WindowId(1), event), 1u);
  lab_.RunUntil([&] { return !events.empty(); });
  EXPECT_EQ(events, std::vector<std::string>{"text: \"closed\"\n"});

  subscriber.End();
  lab_.RunUntil([&] { return !ends_.empty(); });
  EXPECT_EQ(ends_[0], absl::OkStatus());
  EXPECT_FALSE(subscriber.Subscribe(*Key(Method("Watch"), 1)));
}

TEST_F(DynamicStreams, QuestionsAreAnswered) {
  OpenAnswerer();
  Ask();
  lab_.RunUntil([&] { return !replies_.empty(); });
  EXPECT_EQ(questions_[0],
            "browser_id { value: 1 } question { text: \"why?\" }");
  EXPECT_EQ(replies_[0].Answer(*Answer("therefore")), absl::OkStatus());
  lab_.RunUntil([&] { return !outcomes_.empty(); });
  EXPECT_EQ(outcomes_, std::vector<std::string>{"=therefore"});
  EXPECT_EQ(replies_[0].Answer(*Answer("again")),
            absl::FailedPreconditionError("the question is settled already"));
}

TEST_F(DynamicStreams, AnAnswerWithoutAResponseIsNotSent) {
  OpenAnswerer();
  Ask();
  lab_.RunUntil([&] { return !replies_.empty(); });
  EXPECT_EQ(replies_[0].Answer(*New(Method("Decide")->output_type())),
            absl::InvalidArgumentError("the answer has no response"));
  EXPECT_EQ(replies_[0].Answer(*Answer("now")), absl::OkStatus());
  lab_.RunUntil([&] { return !outcomes_.empty(); });
  EXPECT_EQ(outcomes_, std::vector<std::string>{"=now"});
}

TEST_F(DynamicStreams, AQuestionIsDeclinedWhenItsLastHandleGoes) {
  OpenAnswerer();
  Ask();
  lab_.RunUntil([&] { return !replies_.empty(); });
  replies_.clear();
  lab_.RunUntil([&] { return !outcomes_.empty(); });
  EXPECT_EQ(outcomes_, std::vector<std::string>{"declined"});
}

TEST_F(DynamicStreams, AQuestionThatCannotBeReadIsDeclined) {
  OpenAnswerer();
  // Of a kind that this program does not know.
  EXPECT_TRUE(Ask(lab::Decision()));
  lab_.RunUntil([&] { return !outcomes_.empty(); });
  EXPECT_EQ(outcomes_, std::vector<std::string>{"declined"});
  EXPECT_TRUE(questions_.empty());
}

TEST_F(DynamicStreams, NobodyIsAskedAfterTheEnd) {
  OpenAnswerer();
  answerer_->End();
  lab_.RunUntil([&] { return !ends_.empty(); });
  EXPECT_EQ(ends_, std::vector<absl::Status>{absl::OkStatus()});
  EXPECT_FALSE(Ask(lab::Decision()));
}

TEST_F(DynamicStreams, AHandleThatOutlivesItsStreamDoesNothing) {
  OpenAnswerer();
  Ask();
  lab_.RunUntil([&] { return !replies_.empty(); });
  answerer_.reset();
  EXPECT_EQ(replies_[0].Answer(*Answer("late")),
            absl::UnavailableError("the answer cannot be sent"));
  lab_.RunUntil([&] { return !outcomes_.empty(); });
  EXPECT_EQ(outcomes_, std::vector<std::string>{"cancelled"});
}

TEST_F(DynamicStreams, AMethodOfAnotherKindIsNotOpened) {
  DynamicEventSubscriber subscriber(
      *client_, Method("Decide"), factory_, [](const Message&) {},
      [this](const absl::Status& status) { ends_.push_back(status); });
  DynamicCallbackAnswerer answerer(
      *client_, Method("Echo"), factory_,
      [](const Message&, const DynamicCallbackAnswerer::Reply&) {},
      [this](const absl::Status& status) { ends_.push_back(status); });
  EXPECT_FALSE(answerer.Subscribe(*Key(Method("Decide"), 1)));
  lab_.RunReady();
  ASSERT_EQ(ends_.size(), 2u);
  EXPECT_EQ(ends_[0],
            absl::InvalidArgumentError(
                "lab.Lab.Decide is a callback stream, not an event stream"));
  EXPECT_EQ(ends_[1],
            absl::InvalidArgumentError(
                "lab.Lab.Echo is a unary method, not a callback stream"));
  EXPECT_EQ(lab_.server->counters().streams_opened, 0u);
}

// Named as the request of event streams is, and without what that has.
TEST_F(DynamicStreams, AnEventStreamWithoutAKeyIsNotOpened) {
  FileDescriptorProto file;
  file.set_name("forged.proto");
  file.set_package("rpc");
  file.add_message_type()->set_name("EventSubscription");
  auto* const service = file.add_service();
  service->set_name("Forged");
  auto* const method = service->add_method();
  method->set_name("Watch");
  method->set_input_type("EventSubscription");
  method->set_output_type("EventSubscription");
  method->set_client_streaming(true);
  method->set_server_streaming(true);
  for (const bool repeated : {false, true}) {
    if (repeated) {
      auto* const field = file.mutable_message_type(0)->add_field();
      field->set_name("subscribe_to");
      field->set_number(1);
      field->set_type(google::protobuf::FieldDescriptorProto::TYPE_MESSAGE);
      field->set_type_name(".rpc.EventSubscription");
      field->set_label(google::protobuf::FieldDescriptorProto::LABEL_REPEATED);
    }
    DescriptorPool pool;
    google::protobuf::DynamicMessageFactory factory(&pool);
    const MethodDescriptor* watch = pool.BuildFile(file)->service(0)->method(0);
    EXPECT_EQ(KeyTypeOf(*watch), nullptr);
    ends_.clear();
    DynamicEventSubscriber subscriber(
        *client_, watch, factory, [](const Message&) {},
        [this](const absl::Status& status) { ends_.push_back(status); });
    EXPECT_FALSE(subscriber.Subscribe(*Key(Method("Watch"), 1)));
    lab_.RunReady();
    ASSERT_EQ(ends_.size(), 1u);
    EXPECT_EQ(ends_[0], absl::InvalidArgumentError(
                            "rpc.Forged.Watch has no key that one could "
                            "subscribe to"));
  }
}

}  // namespace
}  // namespace rpc::transport
