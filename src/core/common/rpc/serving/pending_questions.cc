#include "core/common/rpc/serving/pending_questions.h"

#include "browser_id.pb.h"

namespace rpc::serving {

PendingQuestions::~PendingQuestions() {
  total_ -= pending_.size();
}

void PendingQuestions::OnAsked(const transport::StreamMessage& question) {
  const bool is_new =
      pending_
          .insert_or_assign(question.call_id(),
                            Question{method_.reader->WindowOfQuestion(question),
                                     Clock::now()})
          .second;
  total_ += is_new ? 1 : 0;
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

void PendingQuestions::Report(Clock::time_point now,
                              ConnectionReport& report) const {
  report.questions += pending_.size();
  size_t left = kReportedQuestions;
  for (const auto& [call_id, question] : pending_) {
    if (left-- == 0) {
      return;
    }
    BrowserId window;
    window.ParseFromString(question.window);
    report.oldest_questions.push_back({method_.descriptor->full_name(),
                                       window.value(), now - question.asked});
  }
}

void PendingQuestions::Settle(int64_t call_id, const std::string& window) {
  const auto question = pending_.find(call_id);
  if (question != pending_.end() && question->second.window == window) {
    pending_.erase(question);
    --total_;
  }
}

void PendingQuestions::Release(const std::string& window) {
  total_ -= std::erase_if(pending_, [&window](const auto& question) {
    return question.second.window == window;
  });
}

}  // namespace rpc::serving
