#include "tools/soak/tally.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>

namespace soak {

absl::StatusOr<SharedTally> SharedTally::Create() {
  const int descriptor = memfd_create("tally", MFD_CLOEXEC);
  if (descriptor < 0)
    return absl::ErrnoToStatus(errno, "memfd_create");
  if (ftruncate(descriptor, sizeof(Tally)) != 0) {
    const absl::Status error = absl::ErrnoToStatus(errno, "ftruncate");
    close(descriptor);
    return error;
  }
  return Open(descriptor);
}

absl::StatusOr<SharedTally> SharedTally::Open(int descriptor) {
  void* const memory = mmap(nullptr, sizeof(Tally), PROT_READ | PROT_WRITE,
                            MAP_SHARED, descriptor, 0);
  if (memory == MAP_FAILED) {
    const absl::Status error = absl::ErrnoToStatus(errno, "mmap");
    close(descriptor);
    return error;
  }
  return SharedTally(descriptor, static_cast<Tally*>(memory));
}

SharedTally::~SharedTally() {
  if (tally_ == nullptr)
    return;
  munmap(tally_, sizeof(Tally));
  close(descriptor_);
}

}  // namespace soak
