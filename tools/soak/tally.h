// Counts what the client processes of a soak have done, in memory shared with
// the host, so that the counts of a killed client remain.
//
//   absl::StatusOr<soak::SharedTally> tally = soak::SharedTally::Create();
//   ... start processes that inherit tally->descriptor() ...
//   std::cout << tally->get().answers;
//
// Ownership: each process owns its mapping and descriptor.
//
// Sequence: any process and thread.
//
// Failure: a status, when there is no memory to share.

#ifndef TOOLS_SOAK_TALLY_H_
#define TOOLS_SOAK_TALLY_H_

#include <atomic>
#include <cstdint>
#include <utility>

#include "absl/status/statusor.h"

namespace soak {

// All zero at first.
struct Tally {
  std::atomic<uint64_t> answers;
  // Questions that were declined.
  std::atomic<uint64_t> declined;
  std::atomic<uint64_t> events;
  // Calls that have succeeded, and that have failed.
  std::atomic<uint64_t> calls;
  std::atomic<uint64_t> failed_calls;
};
static_assert(std::atomic<uint64_t>::is_always_lock_free,
              "processes could not share it");

class SharedTally {
 public:
  // Makes new memory, or maps that of an inherited descriptor, and takes the
  // descriptor over.
  static absl::StatusOr<SharedTally> Create();
  static absl::StatusOr<SharedTally> Open(int descriptor);

  SharedTally(SharedTally&& other) noexcept
      : descriptor_(std::exchange(other.descriptor_, -1)),
        tally_(std::exchange(other.tally_, nullptr)) {}
  SharedTally& operator=(SharedTally&&) = delete;
  ~SharedTally();

  Tally& get() const { return *tally_; }

  // Has the close-on-exec flag: pass it on explicitly, see child_process.h.
  int descriptor() const { return descriptor_; }

 private:
  SharedTally(int descriptor, Tally* tally)
      : descriptor_(descriptor), tally_(tally) {}

  int descriptor_;
  Tally* tally_;
};

}  // namespace soak

#endif  // TOOLS_SOAK_TALLY_H_
