#include "core/common/rpc/serving/pending_questions.h"

#include <utility>

#include "browser_id.pb.h"

namespace rpc::serving {

void Report(const QuestionsOfClient& questions,
            PendingQuestion::Clock::time_point now,
            ConnectionReport& report) {
  report.questions = questions.size();
  for (const PendingQuestion& question : questions) {
    if (report.oldest_questions.size() == kReportedQuestions) {
      return;
    }
    BrowserId window;
    window.ParseFromString(question.window);
    report.oldest_questions.push_back(
        {std::string(question.method->descriptor->full_name()), window.value(),
         now - question.asked});
  }
}

PendingQuestions::~PendingQuestions() {
  for (const auto& [call_id, question] : pending_) {
    all_.erase(question);
    TraceEnd(call_id, absl::CancelledError("the stream has ended"));
  }
}

void PendingQuestions::OnAsked(const transport::StreamMessage& question) {
  const auto asked = all_.insert(
      all_.end(), {&method_, method_.reader->WindowOfQuestion(question),
                   PendingQuestion::Clock::now()});
  const auto [entry, is_new] = pending_.emplace(question.call_id(), asked);
  if (!is_new) {
    all_.erase(std::exchange(entry->second, asked));
    return;
  }
  trace_.Begin(SpanKind::kQuestion, *method_.descriptor,
               static_cast<uint64_t>(question.call_id()));
}

void PendingQuestions::OnData(const WindowMessage& message, int64_t call_id) {
  if (message.kind == WindowMessage::Kind::kResponse) {
    Settle(call_id, message.window);
  } else if (message.kind == WindowMessage::Kind::kUnsubscribe) {
    Release(message.window);
  }
}

void PendingQuestions::OnError(const WindowMessage& message, int64_t call_id) {
  Settle(call_id, message.window);
}

void PendingQuestions::Settle(int64_t call_id, const std::string& window) {
  const auto question = pending_.find(call_id);
  if (question != pending_.end() && question->second->window == window) {
    all_.erase(question->second);
    pending_.erase(question);
    TraceEnd(call_id, absl::OkStatus());
  }
}

void PendingQuestions::Release(const std::string& window) {
  std::erase_if(pending_, [this, &window](const auto& question) {
    const bool is_released = question.second->window == window;
    if (is_released) {
      all_.erase(question.second);
      TraceEnd(question.first, absl::CancelledError("the window is released"));
    }
    return is_released;
  });
}

void PendingQuestions::TraceEnd(int64_t call_id,
                                const absl::Status& status) const {
  trace_.End(SpanKind::kQuestion, *method_.descriptor,
             static_cast<uint64_t>(call_id), status);
}

}  // namespace rpc::serving
