// The questions of one stream that wait for an answer, for clients that answer
// without saying which: stock stubs of the original contract, which has no
// field for it. Such an answer is taken while one question alone waits about
// its window.
//
// Ownership: the stream's. Sequence: the front's.
//
// Failure: none. The server does not say when nobody waits for an answer any
// longer, so such a question counts on, as it does for the server.

#ifndef CORE_COMMON_RPC_GRPC_FRONT_ASKED_QUESTIONS_H_
#define CORE_COMMON_RPC_GRPC_FRONT_ASKED_QUESTIONS_H_

#include <cstddef>
#include <cstdint>
#include <deque>
#include <string>
#include <string_view>

#include "absl/status/statusor.h"

namespace rpc::grpc {

class AskedQuestions {
 public:
  // Beyond this the oldest is forgotten. A server asks a client no more than
  // max_questions at a time, 1,024 if not told otherwise.
  static constexpr size_t kRemembered = 1'024;

  void OnAsked(std::string window, int64_t call_id);

  // The question was answered or declined. Does nothing if it is not known.
  void OnSettled(std::string_view window, int64_t call_id);

  // The client answers for the window no longer, so that none of them waits.
  void OnUnsubscribed(std::string_view window);

  // The one question about `window` that waits; INVALID_ARGUMENT with a text
  // for the client where there is none, or more than one.
  absl::StatusOr<int64_t> Only(std::string_view window) const;

 private:
  struct Question {
    std::string window;
    int64_t call_id;
  };

  // The oldest first.
  std::deque<Question> waiting_;
};

}  // namespace rpc::grpc

#endif  // CORE_COMMON_RPC_GRPC_FRONT_ASKED_QUESTIONS_H_
