#include "core/common/rpc/grpc/front/handler.h"

#include <utility>

#include "absl/strings/str_cat.h"
#include "core/common/rpc/grpc/front/asked_questions.h"
#include "core/common/rpc/grpc/front/question_fields.h"
#include "core/common/rpc/grpc/front/rpc.h"
#include "core/common/rpc/grpc/reflection/reflection_answers.h"

namespace rpc::grpc {
namespace {

class UnaryHandler final : public Handler {
 public:
  UnaryHandler(Rpc& rpc, const BackendMethod& method)
      : rpc_(rpc), method_(method) {}

  void OnMessage(std::string request) override {
    const auto time_left = rpc_.TimeLeft();
    if (!time_left.ok()) {
      rpc_.Fail(time_left.status());
      return;
    }
    called_ = true;
    rpc_.backend().Call(rpc_.id(), method_, *time_left, request);
  }
  void OnHalfClose() override {
    rpc_.Fail(absl::InvalidArgumentError("a call without a request"));
  }
  void GiveUp() override {
    if (called_) {
      rpc_.backend().Cancel(rpc_.id());
    }
  }

 private:
  Rpc& rpc_;
  const BackendMethod method_;
  bool called_ = false;
};

// What all streams of the backend have in common.
class StreamHandler : public Handler {
 public:
  StreamHandler(Rpc& rpc, const BackendMethod& method)
      : rpc_(rpc), method_(method) {}

  void Begin() override {
    rpc_.exchange().Accept();
    rpc_.backend().Open(rpc_.id(), method_);
  }

  void OnMessage(std::string message) override { Send(std::move(message)); }
  void OnHalfClose() override { rpc_.backend().End(rpc_.id()); }
  void GiveUp() override { rpc_.backend().End(rpc_.id()); }

 protected:
  void Send(std::string payload, int64_t call_id = 0) {
    transport::StreamMessage message = MessageOf(std::move(payload), call_id);
    Continue(rpc_.backend().Send(rpc_.id(), message));
  }
  void Decline(std::string payload, int64_t call_id) {
    transport::StreamMessage message = MessageOf(std::move(payload), call_id);
    Continue(rpc_.backend().Decline(rpc_.id(), message));
  }

  Rpc& rpc_;

 private:
  static transport::StreamMessage MessageOf(std::string payload,
                                            int64_t call_id) {
    transport::StreamMessage message;
    message.set_payload(std::move(payload));
    message.set_call_id(call_id);
    return message;
  }
  void Continue(const absl::Status& sent) {
    if (sent.ok()) {
      rpc_.ReadNext();
    } else {
      rpc_.Fail(sent);
    }
  }

  const BackendMethod method_;
};

class EventHandler final : public StreamHandler {
 public:
  EventHandler(Rpc& rpc, const BackendMethod& method, size_t max_messages)
      : StreamHandler(rpc, method), max_messages_(max_messages) {}

  void OnMessage(std::string message) override {
    if (++messages_ > max_messages_) {
      rpc_.Fail(absl::ResourceExhaustedError(
          absl::StrCat("more messages on one stream of events than "
                       "max_event_messages, ",
                       max_messages_, ": open another")));
      return;
    }
    Send(std::move(message));
  }
  // Simple clients close their half as soon as they have subscribed.
  void OnHalfClose() override {}

 private:
  const size_t max_messages_;
  size_t messages_ = 0;
};

class QuestionHandler final : public StreamHandler {
 public:
  using StreamHandler::StreamHandler;

  void OnMessage(std::string message) override {
    const QuestionFields said = TakeQuestionFields(message);
    if (!said.has_response && !said.declined) {
      if (said.subscribe == false) {
        asked_.OnUnsubscribed(said.window);
      }
      Send(std::move(message));
      return;
    }
    const absl::StatusOr<int64_t> call_id =
        said.call_id ? *said.call_id : asked_.Only(said.window);
    if (!call_id.ok()) {
      rpc_.Fail(call_id.status());
      return;
    }
    asked_.OnSettled(said.window, *call_id);
    if (said.declined) {
      Decline(std::move(message), *call_id);
    } else {
      Send(std::move(message), *call_id);
    }
  }

  std::string ToClient(const transport::StreamMessage& message) override {
    asked_.OnAsked(WindowOf(message.payload()), message.call_id());
    std::string question = message.payload();
    AppendCallId(message.call_id(), question);
    return question;
  }

 private:
  AskedQuestions asked_;
};

class ReflectionHandler final : public Handler {
 public:
  ReflectionHandler(Rpc& rpc, std::shared_ptr<const ReflectionAnswers> answers)
      : rpc_(rpc), answers_(std::move(answers)) {}

  void Begin() override { rpc_.exchange().Accept(); }

  void OnMessage(std::string message) override {
    const absl::StatusOr<std::string> answer = answers_->Answer(message);
    const absl::Status status =
        answer.ok() ? rpc_.CheckRoomFor(answer->size()) : answer.status();
    if (!status.ok()) {
      rpc_.Fail(status);
      return;
    }
    rpc_.exchange().Write(*answer);
    rpc_.ReadNext();
  }
  void OnHalfClose() override { rpc_.Fail(absl::OkStatus()); }
  void GiveUp() override {}

 private:
  Rpc& rpc_;
  const std::shared_ptr<const ReflectionAnswers> answers_;
};

}  // namespace

std::unique_ptr<Handler> MakeUnaryHandler(Rpc& rpc,
                                          const BackendMethod& method) {
  return std::make_unique<UnaryHandler>(rpc, method);
}

std::unique_ptr<Handler> MakeEventHandler(Rpc& rpc,
                                          const BackendMethod& method,
                                          size_t max_messages) {
  return std::make_unique<EventHandler>(rpc, method, max_messages);
}

std::unique_ptr<Handler> MakeQuestionHandler(Rpc& rpc,
                                             const BackendMethod& method) {
  return std::make_unique<QuestionHandler>(rpc, method);
}

std::unique_ptr<Handler> MakeOtherStreamHandler(Rpc& rpc,
                                                const BackendMethod& method) {
  return std::make_unique<StreamHandler>(rpc, method);
}

std::unique_ptr<Handler> MakeReflectionHandler(
    Rpc& rpc,
    std::shared_ptr<const ReflectionAnswers> answers) {
  return std::make_unique<ReflectionHandler>(rpc, std::move(answers));
}

}  // namespace rpc::grpc
