#include "core/common/rpc/loop/glib_wake_up.h"

#include <sys/epoll.h>

#include <algorithm>
#include <cerrno>
#include <system_error>

#include "absl/log/absl_check.h"

namespace rpc::loop {

bool GlibWakeUp::IsBefore(const Watched& one, const Watched& other) {
  return one.descriptor < other.descriptor;
}

// Shared with the wait under way, which may end after the wake-up is destroyed.
struct GlibWakeUp::EpollSet {
  enum class State { kIdle, kArmed, kHasWoken };

  explicit EpollSet(asio::io_context& context)
      : descriptor(context, epoll_create1(EPOLL_CLOEXEC)) {}

  asio::posix::stream_descriptor descriptor;
  State state = State::kIdle;
};

GlibWakeUp::GlibWakeUp(asio::io_context& context) : context_(context) {
  Renew();
}

GlibWakeUp::~GlibWakeUp() {
  std::error_code ignored;
  set_->descriptor.close(ignored);
}

void GlibWakeUp::Renew() {
  if (set_ != nullptr) {
    std::error_code ignored;
    set_->descriptor.close(ignored);
  }
  set_ = std::make_shared<EpollSet>(context_);
  watched_.clear();
}

void GlibWakeUp::Watch(const GPollFD* descriptors, unsigned count) {
  // It has woken somebody for nothing. A task may have read what was to be
  // read; but it may also be for a descriptor that was closed while a copy of
  // it is open. The set keeps such a one, under a number that can no longer be
  // used to remove it, and would wake somebody again and again.
  if (set_->state == EpollSet::State::kHasWoken) {
    Renew();
  }
  std::swap(watched_, formerly_watched_);
  watched_.clear();
  for (unsigned i = 0; i < count; ++i) {
    watched_.push_back({descriptors[i].fd, descriptors[i].events});
  }
  std::sort(watched_.begin(), watched_.end(), IsBefore);
  MergeEqual();
  for (const Watched& watched : watched_) {
    Put(watched);
  }
  for (const Watched& former : formerly_watched_) {
    if (!std::binary_search(watched_.begin(), watched_.end(), former,
                            IsBefore)) {
      // Fails for one that is closed: it has left the set by that.
      epoll_ctl(set_->descriptor.native_handle(), EPOLL_CTL_DEL,
                former.descriptor, nullptr);
    }
  }
}

// GLib may name a descriptor once for each kind of use.
void GlibWakeUp::MergeEqual() {
  auto last = watched_.begin();
  for (auto next = watched_.begin(); next != watched_.end(); ++next) {
    if (next->descriptor == last->descriptor) {
      last->events |= next->events;
    } else {
      *++last = *next;
    }
  }
  if (!watched_.empty()) {
    watched_.erase(last + 1, watched_.end());
  }
}

// Although the set may have a descriptor of this number already: it may be
// another one by now, which has to be added.
void GlibWakeUp::Put(const Watched& watched) {
  const int set = set_->descriptor.native_handle();
  // The bits of poll() and epoll are the same.
  epoll_event event{.events = watched.events,
                    .data = {.fd = watched.descriptor}};
  if (epoll_ctl(set, EPOLL_CTL_MOD, watched.descriptor, &event) != 0 &&
      errno == ENOENT) {
    epoll_ctl(set, EPOLL_CTL_ADD, watched.descriptor, &event);
  }
}

void GlibWakeUp::OnReady() {
  if (set_->state == EpollSet::State::kHasWoken) {
    set_->state = EpollSet::State::kIdle;
  }
}

void GlibWakeUp::Arm() {
  if (set_->state == EpollSet::State::kArmed) {
    return;
  }
  set_->state = EpollSet::State::kArmed;
  set_->descriptor.async_wait(asio::posix::stream_descriptor::wait_read,
                              [set = set_](const std::error_code&) {
                                set->state = EpollSet::State::kHasWoken;
                              });
}

}  // namespace rpc::loop
