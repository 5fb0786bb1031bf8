// The questions of one callback stream that wait for their answers, and since
// when.
//
// The stream knows which of its questions are pending, but does not tell. This
// follows it from outside, by the frames that pass between the stream and its
// client:
//
//   question with a call id ──────────────────────> one more
//   answer, or error, with that id and window ────> it is settled
//   subscription that releases a window ──────────> all of that window's are
//
// Ownership: the stream's entry in Streams. Holds as many entries as questions
// are pending.
//
// Sequence: the server's.
//
// Failure: none.

#ifndef CORE_COMMON_RPC_SERVING_PENDING_QUESTIONS_H_
#define CORE_COMMON_RPC_SERVING_PENDING_QUESTIONS_H_

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <string>

#include "core/common/rpc/serving/served_methods.h"
#include "core/common/rpc/serving/server_report.h"
#include "core/common/rpc/serving/window_message_reader.h"
#include "rpc/transport/stream_message.pb.h"

namespace rpc::serving {

class PendingQuestions {
 public:
  using Clock = std::chrono::steady_clock;

  // `total` counts the questions that are pending, of all streams of a client,
  // and outlives this.
  PendingQuestions(const ServedMethod& method, size_t& total)
      : method_(method), total_(total) {}
  PendingQuestions(const PendingQuestions&) = delete;
  PendingQuestions& operator=(const PendingQuestions&) = delete;
  ~PendingQuestions();

  // A question has been sent to the client.
  void OnAsked(const transport::StreamMessage& question);

  // The client has sent a data or error frame with this call id, which the
  // stream has yet to see.
  void OnData(const WindowMessage& message, int64_t call_id);
  void OnError(const WindowMessage& message, int64_t call_id);

  // Adds how many questions are pending, and the oldest of them as of `now`.
  void Report(Clock::time_point now, ConnectionReport& report) const;

 private:
  struct Question {
    // As in WindowMessage.
    std::string window;
    Clock::time_point asked;
  };

  void Settle(int64_t call_id, const std::string& window);
  void Release(const std::string& window);

  const ServedMethod& method_;
  size_t& total_;
  // By call id, and so in the order in which they were asked.
  std::map<int64_t, Question> pending_;
};

}  // namespace rpc::serving

#endif  // CORE_COMMON_RPC_SERVING_PENDING_QUESTIONS_H_
