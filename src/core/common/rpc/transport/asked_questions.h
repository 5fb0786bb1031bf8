// The questions of one callback stream that wait for their answers, and since
// when: what a report of the server says of them.
//
// The stream knows which questions are pending, but neither tells nor notes the
// time. This follows it from outside, by the frames that pass between the
// stream and its client:
//
//   question with a call id ──────────────────────> one more
//   answer, or error, with that id and window ────> it is settled
//   subscription that releases a window ──────────> all of that window's are
//
// Ownership: the stream's entry in ServerStreams. Holds as many entries as
// questions are pending.
//
// Sequence: the loop's.
//
// Failure: none.

#ifndef CORE_COMMON_RPC_TRANSPORT_ASKED_QUESTIONS_H_
#define CORE_COMMON_RPC_TRANSPORT_ASKED_QUESTIONS_H_

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <string>

#include "core/common/rpc/transport/served_methods.h"
#include "core/common/rpc/transport/server_report.h"
#include "core/common/rpc/transport/window_message.h"
#include "rpc/transport/stream_message.pb.h"

namespace rpc::transport {

class AskedQuestions {
 public:
  using Clock = std::chrono::steady_clock;

  // Null for a method whose streams ask no questions. `total` counts those that
  // are pending, of all streams of a connection, and outlives this.
  static std::unique_ptr<AskedQuestions> MakeFor(const ServedMethod& method,
                                                 size_t& total);
  AskedQuestions(const AskedQuestions&) = delete;
  AskedQuestions& operator=(const AskedQuestions&) = delete;
  ~AskedQuestions();

  // The server has sent `message`.
  void OnSent(const StreamMessage& message);

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

  AskedQuestions(const ServedMethod& method, size_t& total)
      : method_(method), total_(total) {}

  void Settle(int64_t call_id, const std::string& window);
  void Release(const std::string& window);

  const ServedMethod& method_;
  size_t& total_;
  // By call id, and so in the order in which they were asked.
  std::map<int64_t, Question> pending_;
};

}  // namespace rpc::transport

#endif  // CORE_COMMON_RPC_TRANSPORT_ASKED_QUESTIONS_H_
