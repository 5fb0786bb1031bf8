#include "core/common/rpc/grpc/front/asked_questions.h"

#include <algorithm>
#include <utility>

#include "absl/status/status.h"

namespace rpc::grpc {

void AskedQuestions::OnAsked(std::string window, int64_t call_id) {
  waiting_.push_back({std::move(window), call_id});
  if (waiting_.size() > kRemembered) {
    waiting_.pop_front();
  }
}

void AskedQuestions::OnSettled(std::string_view window, int64_t call_id) {
  const auto settled =
      std::ranges::find_if(waiting_, [&](const Question& question) {
        return question.call_id == call_id && question.window == window;
      });
  if (settled != waiting_.end()) {
    waiting_.erase(settled);
  }
}

void AskedQuestions::OnUnsubscribed(std::string_view window) {
  std::erase_if(waiting_, [&](const Question& question) {
    return question.window == window;
  });
}

absl::StatusOr<int64_t> AskedQuestions::Only(std::string_view window) const {
  const Question* only = nullptr;
  for (const Question& question : waiting_) {
    if (question.window != window) {
      continue;
    }
    if (only != nullptr) {
      return absl::InvalidArgumentError(
          "an answer without call_id, while several questions about its window "
          "wait: repeat the call_id of the question, field 15");
    }
    only = &question;
  }
  if (only == nullptr) {
    return absl::InvalidArgumentError(
        "an answer without call_id, while no question about its window waits");
  }
  return only->call_id;
}

}  // namespace rpc::grpc
