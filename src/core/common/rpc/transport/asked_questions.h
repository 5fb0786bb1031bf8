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
// Of a frame it reads no more than the window and which kind it is.
//
// Ownership: the stream's entry in ServerStreams. Holds as many entries as
// questions are pending.
//
// Sequence: the loop's.
//
// Failure: none. A payload that does not parse counts as far as it parsed, as
// for the stream.

#ifndef CORE_COMMON_RPC_TRANSPORT_ASKED_QUESTIONS_H_
#define CORE_COMMON_RPC_TRANSPORT_ASKED_QUESTIONS_H_

#include <google/protobuf/descriptor.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>

#include "core/common/rpc/transport/server_report.h"
#include "rpc/transport/stream_message.pb.h"

namespace rpc::transport {

class AskedQuestions {
 public:
  using Clock = std::chrono::steady_clock;

  // Null for a method whose streams ask no questions. `total` counts those that
  // are pending, of all streams of a connection, and outlives this.
  static std::unique_ptr<AskedQuestions> MakeFor(
      const google::protobuf::MethodDescriptor& method,
      size_t& total);
  AskedQuestions(const AskedQuestions&) = delete;
  AskedQuestions& operator=(const AskedQuestions&) = delete;
  ~AskedQuestions();

  // The server has sent `message`; the client has sent a data or error frame
  // with it, which the stream has yet to see.
  void OnSent(const StreamMessage& message);
  void OnData(const StreamMessage& message);
  void OnError(const StreamMessage& message);

  // Adds how many questions are pending, and the oldest of them as of `now`.
  void Report(Clock::time_point now, ConnectionReport& report) const;

 private:
  enum class Body { kNone, kSubscribe, kRelease, kResponse };

  // What a frame says besides its call id.
  struct Envelope {
    int64_t window = 0;
    Body body = Body::kNone;
  };

  struct Question {
    // The value of the window's BrowserId.
    int64_t window;
    Clock::time_point asked;
  };

  AskedQuestions(const google::protobuf::MethodDescriptor& method,
                 uint32_t window_tag,
                 size_t& total)
      : method_(method), window_tag_(window_tag), total_(total) {}

  Envelope Read(const StreamMessage& message) const;
  void Settle(int64_t call_id, int64_t window);
  void Release(int64_t window);

  const google::protobuf::MethodDescriptor& method_;
  // What precedes the field browser_id in a payload.
  const uint32_t window_tag_;
  size_t& total_;
  // By call id, and so in the order in which they were asked.
  std::map<int64_t, Question> pending_;
};

}  // namespace rpc::transport

#endif  // CORE_COMMON_RPC_TRANSPORT_ASKED_QUESTIONS_H_
