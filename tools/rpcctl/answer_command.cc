#include <google/protobuf/message.h>
#include <unistd.h>

#include <chrono>
#include <memory>
#include <string>
#include <utility>

#include "absl/strings/str_cat.h"
#include "core/common/rpc/transport/dynamic_streams.h"
#include "tools/rpcctl/answer_source.h"
#include "tools/rpcctl/commands.h"
#include "tools/rpcctl/json.h"
#include "tools/rpcctl/keys.h"
#include "tools/rpcctl/session.h"
#include "tools/rpcctl/stream_run.h"

namespace rpcctl {
namespace {

using google::protobuf::Descriptor;
using google::protobuf::FieldDescriptor;
using google::protobuf::Message;
using google::protobuf::MethodDescriptor;
using rpc::transport::DynamicCallbackAnswerer;

using KeyName = std::function<std::string(const Message& key)>;

std::unique_ptr<AnswerSource> MakeSource(const Options& options,
                                         rpc::loop::Loop& loop,
                                         std::function<void()> on_exhausted) {
  if (options.with)
    return MakeFixedAnswers(*options.with);
  if (options.exec)
    return MakeCommandAnswers(loop, *options.exec);
  if (isatty(STDIN_FILENO) != 0)
    return MakeTypedAnswers(loop, STDIN_FILENO, std::move(on_exhausted));
  return MakeLineAnswers(loop, STDIN_FILENO, std::move(on_exhausted));
}

// The single field of that name and type; null if the message has none.
const FieldDescriptor* FindField(const Descriptor& type,
                                 const char* name,
                                 FieldDescriptor::CppType cpp_type) {
  const FieldDescriptor* field = type.FindFieldByName(name);
  return field != nullptr && !field->is_repeated() &&
                 field->cpp_type() == cpp_type
             ? field
             : nullptr;
}

// The message in that field of a callback message; null if there is none.
const Message* FindMessage(const Message& message, const char* name) {
  const FieldDescriptor* field = FindField(*message.GetDescriptor(), name,
                                           FieldDescriptor::CPPTYPE_MESSAGE);
  return field == nullptr
             ? nullptr
             : &message.GetReflection()->GetMessage(message, field);
}

// For how long the asker waits, in milliseconds. By convention the question
// says so; 0 if it does not.
uint32_t TimeToAnswer(const Message& message) {
  const Message* question = FindMessage(message, "question");
  const FieldDescriptor* field =
      question == nullptr
          ? nullptr
          : FindField(*question->GetDescriptor(), "answer_within_ms",
                      FieldDescriptor::CPPTYPE_UINT32);
  return field == nullptr
             ? 0
             : question->GetReflection()->GetUInt32(*question, field);
}

// Fills in the response of a callback message.
absl::Status SetResponse(const std::string& json, Message* message) {
  const FieldDescriptor* field = FindField(
      *message->GetDescriptor(), "response", FieldDescriptor::CPPTYPE_MESSAGE);
  if (field == nullptr)
    return FromJson(absl::StrCat("{\"response\": ", json, "}"), message);
  return FromJson(json,
                  message->GetReflection()->MutableMessage(message, field));
}

// A question without a usable answer is declined, so that the server does not
// wait for it until its deadline.
class QuestionAnswerer {
 public:
  QuestionAnswerer(Session& session,
                   StreamRun& run,
                   const MethodDescriptor* method,
                   const Keys& keys,
                   KeyName name)
      : session_(session),
        method_(method),
        name_(std::move(name)),
        source_(
            MakeSource(session.options(), session.loop(), [this] { End(); })),
        stream_(
            session.client(),
            method,
            *session.contract().messages,
            [this](const Message& question,
                   const DynamicCallbackAnswerer::Reply& reply) {
              OnQuestion(question, reply);
            },
            run.on_end()) {
    for (const auto& key : keys)
      stream_.Subscribe(*key);
  }

  void End() { stream_.End(); }

 private:
  using Reply = DynamicCallbackAnswerer::Reply;

  void OnQuestion(const Message& question, const Reply& reply) {
    const Question asked = Describe(question);
    PrintLine(asked.json);
    source_->Answer(
        asked, [this, title = asked.title, deadline = asked.deadline,
                reply](const absl::StatusOr<std::string>& answer) {
          const bool late = deadline && session_.loop().Now() >= *deadline;
          // If this fails, `reply`, the last handle, is destroyed, and that
          // declines the question.
          const absl::Status sent = late ? TooLate(title) : Send(reply, answer);
          if (!sent.ok())
            Fail(kCallFailed, absl::StrCat("Not answered: ", sent.message()));
        });
  }

  Question Describe(const Message& question) const {
    Question described;
    described.json = ToJson(question);
    described.title = absl::StrCat(method_->name(), " about ",
                                   name_(*FindMessage(question, "browser_id")));
    const uint32_t time = TimeToAnswer(question);
    if (time != 0) {
      described.deadline =
          session_.loop().Now() + std::chrono::milliseconds(time);
    }
    described.check = [this](const std::string& json) {
      return SetResponse(json, NewMessage().get());
    };
    return described;
  }

  // The server would drop the answer.
  static absl::Status TooLate(const std::string& title) {
    return absl::DeadlineExceededError(
        absl::StrCat("it is too late, the host no longer waits for ", title));
  }

  absl::Status Send(const Reply& reply,
                    const absl::StatusOr<std::string>& json) const {
    if (!json.ok())
      return json.status();
    const std::unique_ptr<Message> answer = NewMessage();
    absl::Status parsed = SetResponse(*json, answer.get());
    return parsed.ok() ? reply.Answer(*answer) : parsed;
  }

  std::unique_ptr<Message> NewMessage() const {
    return session_.NewMessage(method_->output_type());
  }

  Session& session_;
  const MethodDescriptor* const method_;
  const KeyName name_;
  // Declared before the stream, so that it is destroyed after it: the reply
  // handles in it do nothing then, instead of declining each question.
  const std::unique_ptr<AnswerSource> source_;
  DynamicCallbackAnswerer stream_;
};

}  // namespace

ExitCode AnswerQuestions(Session& session,
                         const MethodDescriptor* method,
                         const Keys& keys,
                         const KeyName& name,
                         const AwaitReply& await_reply) {
  if (session.options().with && session.options().exec)
    return Fail(kUsage, "Choose between --with and --exec.");
  if (session.options().with) {
    const auto answer = session.NewMessage(method->output_type());
    if (absl::Status json = SetResponse(*session.options().with, answer.get());
        !json.ok()) {
      return Fail(kUsage, json.message());
    }
  }
  if (ExitCode fault = session.Connect(); fault != kSuccess)
    return fault;
  StreamRun run(session);
  QuestionAnswerer answerer(session, run, method, keys, name);
  return run.Run(await_reply, [&] { answerer.End(); });
}

ExitCode Answer(Session& session, const Arguments& arguments) {
  if (arguments.empty())
    return Fail(kUsage, "'answer' takes a method and keys.");
  const MethodDescriptor* method;
  if (ExitCode fault = session.FindMethod(
          arguments[0], torvane::MethodKind::kCallbackStream, &method);
      fault != kSuccess) {
    return fault;
  }
  Keys keys;
  if (ExitCode fault = ParseKeys(
          session, *method, {arguments.begin() + 1, arguments.end()}, &keys);
      fault != kSuccess) {
    return fault;
  }
  return AnswerQuestions(session, method, keys, ToJson, AwaitReflection);
}

}  // namespace rpcctl
