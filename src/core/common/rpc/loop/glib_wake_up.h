// Wakes a waiting Asio loop when one of GLib's descriptors is ready.
//
//   wake_up.Watch(descriptors, count);
//   wake_up.Arm();
//   context.run_one();        returns when a task has run or one of them is
//   ready
//
// GLib names its descriptors anew for each poll. They are mirrored into one
// epoll set, which is the only descriptor that Asio sees.
//
// Ownership: the context must outlive it. The descriptors stay GLib's.
//
// Sequence: the loop's.
//
// Failure: a system that grants no descriptor ends the process. A descriptor
// that cannot be watched is left out: those that are closed, or are files,
// polling calls ready, so that there is no waiting for them.

#ifndef CORE_COMMON_RPC_LOOP_GLIB_WAKE_UP_H_
#define CORE_COMMON_RPC_LOOP_GLIB_WAKE_UP_H_

#include <glib.h>

#include <cstdint>
#include <memory>
#include <vector>

#include "core/common/rpc/loop/asio.h"

namespace rpc::loop {

class GlibWakeUp {
 public:
  explicit GlibWakeUp(asio::io_context& context);
  GlibWakeUp(const GlibWakeUp&) = delete;
  GlibWakeUp& operator=(const GlibWakeUp&) = delete;
  ~GlibWakeUp();

  // Replaces what is watched. None of these is ready, as a poll has just told.
  void Watch(const GPollFD* descriptors, unsigned count);

  // Has the loop run a task, once, when one of them is ready.
  void Arm();

  // GLib has something to do: if this has woken somebody, it was right to.
  void OnReady();

 private:
  struct EpollSet;
  struct Watched {
    int descriptor;
    uint32_t events;
  };

  static bool IsBefore(const Watched& one, const Watched& other);

  // Makes an empty set.
  void Renew();
  void MergeEqual();
  void Put(const Watched& watched);

  asio::io_context& context_;
  std::shared_ptr<EpollSet> set_;
  // What is in the set, sorted by number.
  std::vector<Watched> watched_;
  // Kept for its memory.
  std::vector<Watched> formerly_watched_;
};

}  // namespace rpc::loop

#endif  // CORE_COMMON_RPC_LOOP_GLIB_WAKE_UP_H_
