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
// The questions of all streams of one client stand in one list, in the order in
// which they were asked, so that a report finds the oldest ones without a walk.
//
// Ownership: the stream's entry in Streams, which owns the list, too. Holds as
// many entries as questions are pending.
//
// Sequence: the server's.
//
// Failure: none.

#ifndef CORE_COMMON_RPC_SERVING_PENDING_QUESTIONS_H_
#define CORE_COMMON_RPC_SERVING_PENDING_QUESTIONS_H_

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <list>
#include <map>
#include <string>

#include "core/common/rpc/serving/served_methods.h"
#include "core/common/rpc/serving/server_report.h"
#include "core/common/rpc/serving/trace.h"
#include "core/common/rpc/serving/window_message_reader.h"
#include "rpc/transport/stream_message.pb.h"

namespace rpc::serving {

struct PendingQuestion {
  using Clock = std::chrono::steady_clock;

  const ServedMethod* method;
  // As in WindowMessage.
  std::string window;
  Clock::time_point asked;
};

// Of all streams of a client, the oldest first.
using QuestionsOfClient = std::list<PendingQuestion>;

// Tells how many questions are pending, and the oldest of them as of `now`.
void Report(const QuestionsOfClient& questions,
            PendingQuestion::Clock::time_point now,
            ConnectionReport& report);

class PendingQuestions {
 public:
  // `all` outlives this.
  PendingQuestions(const ServedMethod& method,
                   QuestionsOfClient& all,
                   const ClientTrace& trace = {})
      : method_(method), all_(all), trace_(trace) {}
  PendingQuestions(const PendingQuestions&) = delete;
  PendingQuestions& operator=(const PendingQuestions&) = delete;
  ~PendingQuestions();

  bool empty() const { return pending_.empty(); }

  // A question has been sent to the client.
  void OnAsked(const transport::StreamMessage& question);

  // The client has sent a data or error frame with this call id, which the
  // stream has yet to see.
  void OnData(const WindowMessage& message, int64_t call_id);
  void OnError(const WindowMessage& message, int64_t call_id);

 private:
  void Settle(int64_t call_id, const std::string& window);
  void Release(const std::string& window);
  void TraceEnd(int64_t call_id, const absl::Status& status) const;

  const ServedMethod& method_;
  QuestionsOfClient& all_;
  const ClientTrace trace_;
  // By call id.
  std::map<int64_t, QuestionsOfClient::iterator> pending_;
};

}  // namespace rpc::serving

#endif  // CORE_COMMON_RPC_SERVING_PENDING_QUESTIONS_H_
