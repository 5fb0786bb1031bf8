// Bounds how many records clients can have a server write.
//
// A client that connects in a loop and is refused each time, or closed, could
// have 17,000 records written in a second. So there is a number of them for
// each second; the rest is counted, and at the end of the second one more
// record says how many were left out.
//
// Ownership: the server's.
//
// Sequence: the server's, whose clock it uses.
//
// Failure: none.

#ifndef CORE_COMMON_RPC_SERVING_RECORD_RATE_H_
#define CORE_COMMON_RPC_SERVING_RECORD_RATE_H_

#include <cstdint>
#include <memory>
#include <string>

#include "core/common/rpc/loop/sequence.h"

namespace rpc::serving {

// Of one server. The first few say what is wrong, and so many for a whole day
// are about 100 MB.
inline constexpr uint64_t kRecordsPerSecond = 10;

class RecordRate {
 public:
  // `sequence` outlives it.
  explicit RecordRate(loop::Sequence& sequence);
  RecordRate(const RecordRate&) = delete;
  RecordRate& operator=(const RecordRate&) = delete;

  // Says how many were left out last.
  ~RecordRate();

  // Writes a warning, or leaves it out.
  void Warn(const std::string& text);

  // Says now how many were left out, and waits for nothing.
  void Flush();

 private:
  loop::Sequence& sequence_;
  // Of the second that began with the record at that time.
  loop::Clock::time_point second_;
  uint64_t written_ = 0;
  uint64_t left_out_ = 0;
  // Until the end of a second in which some were left out.
  std::unique_ptr<loop::Timer> timer_;
};

}  // namespace rpc::serving

#endif  // CORE_COMMON_RPC_SERVING_RECORD_RATE_H_
