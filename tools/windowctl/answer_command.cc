#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>

#include "absl/strings/str_cat.h"
#include "core/common/rpc/transport/callback_answerer.h"
#include "rpc/browser/browser_window.pb.h"
#include "tools/windowctl/answer_source.h"
#include "tools/windowctl/commands.h"
#include "tools/windowctl/json.h"
#include "tools/windowctl/method_table.h"
#include "tools/windowctl/stream_session.h"

namespace windowctl {
namespace {

using google::protobuf::MethodDescriptor;

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

// T is the message of the method. A question without a usable answer is
// declined, so that the host does not wait for it until its deadline.
template <typename T>
class QuestionAnswerer {
 public:
  QuestionAnswerer(StreamSession& session,
                   const MethodDescriptor* method,
                   const Options& options)
      : sequence_(session.loop()),
        title_(method->name()),
        source_(MakeSource(options, session.loop(), [this] { End(); })),
        stream_(
            session.client(),
            method,
            [this](const T& question, Reply reply) {
              OnQuestion(question, std::move(reply));
            },
            session.on_end()) {
    for (const BrowserId& window : session.windows())
      stream_.Subscribe(window);
  }

  void End() { stream_.End(); }

 private:
  using Stream = rpc::transport::CallbackAnswerer<T>;
  using Reply = typename Stream::Reply;

  void OnQuestion(const T& question, Reply reply) {
    const Question asked = Describe(question);
    PrintLine(asked.json);
    source_->Answer(
        asked, [this, title = asked.title, deadline = asked.deadline,
                reply](const absl::StatusOr<std::string>& answer) {
          const bool late = deadline && sequence_.Now() >= *deadline;
          // If this fails, `reply`, the last handle, is destroyed, and that
          // declines the question.
          const absl::Status sent = late ? TooLate(title) : Send(reply, answer);
          if (!sent.ok())
            Fail(kCallFailed, absl::StrCat("Not answered: ", sent.message()));
        });
  }

  Question Describe(const T& question) const {
    Question described;
    described.json = ToJson(question);
    described.title =
        absl::StrCat(title_, " about window ", question.browser_id().value());
    const uint32_t time = question.question().answer_within_ms();
    if (time != 0)
      described.deadline = sequence_.Now() + std::chrono::milliseconds(time);
    described.check = [](const std::string& json) {
      typename T::Response response;
      return FromJson(json, &response);
    };
    return described;
  }

  // The host would drop the answer.
  static absl::Status TooLate(const std::string& title) {
    return absl::DeadlineExceededError(
        absl::StrCat("it is too late, the host no longer waits for ", title));
  }

  static absl::Status Send(const Reply& reply,
                           const absl::StatusOr<std::string>& json) {
    if (!json.ok())
      return json.status();
    T answer;
    absl::Status parsed = FromJson(*json, answer.mutable_response());
    return parsed.ok() ? reply.Answer(std::move(answer)) : parsed;
  }

  const rpc::loop::Sequence& sequence_;
  const std::string title_;
  // Declared before the stream, so that it is destroyed after it: the reply
  // handles in it do nothing then, instead of declining each question.
  const std::unique_ptr<AnswerSource> source_;
  Stream stream_;
};

template <typename T>
ExitCode AnswerWith(const Options& options,
                    const MethodDescriptor* method,
                    const Arguments& windows) {
  if (options.with) {
    typename T::Response response;
    if (absl::Status json = FromJson(*options.with, &response); !json.ok())
      return Fail(kUsage, json.message());
  }
  StreamSession session(options);
  if (ExitCode fault = session.Open(windows); fault != kSuccess)
    return fault;
  QuestionAnswerer<T> answerer(session, method, options);
  return session.Run([&] { answerer.End(); });
}

}  // namespace

ExitCode Answer(const Options& options, const Arguments& arguments) {
  if (arguments.empty())
    return Fail(kUsage, "'answer' takes a method and the ids of windows.");
  if (options.with && options.exec)
    return Fail(kUsage, "Choose between --with and --exec.");
  const auto method =
      FindMethod(*rpc::BrowserWindow::descriptor(), arguments[0],
                 torvane::MethodKind::kCallbackStream);
  if (!method.ok())
    return Fail(kUsage, method.status().message());

  const Arguments windows(arguments.begin() + 1, arguments.end());
  const auto* const type = (*method)->output_type();
  if (type == rpc::CloseWindow::descriptor())
    return AnswerWith<rpc::CloseWindow>(options, *method, windows);
  if (type == rpc::CanExecuteCommand::descriptor())
    return AnswerWith<rpc::CanExecuteCommand>(options, *method, windows);
  return AnswerWith<rpc::ShowContextMenu>(options, *method, windows);
}

}  // namespace windowctl
