// A file descriptor that is closed with its owner.
//
// Ownership: it owns the descriptor, until Release() gives it to the caller.
//
// Failure: -1 stands for no descriptor, so the result of a system call can be
// stored and checked with is_valid(). What close() returns is ignored.

#ifndef CORE_COMMON_RPC_LOOP_SCOPED_FD_H_
#define CORE_COMMON_RPC_LOOP_SCOPED_FD_H_

#include <unistd.h>

#include <utility>

namespace rpc::loop {

class ScopedFd {
 public:
  explicit ScopedFd(int fd = -1) : fd_(fd) {}
  ScopedFd(ScopedFd&& other) noexcept : fd_(other.Release()) {}
  ScopedFd& operator=(ScopedFd&& other) noexcept {
    std::swap(fd_, other.fd_);
    return *this;
  }
  ~ScopedFd() {
    if (is_valid()) {
      close(fd_);
    }
  }

  int get() const { return fd_; }
  bool is_valid() const { return fd_ >= 0; }
  int Release() { return std::exchange(fd_, -1); }

 private:
  int fd_;
};

}  // namespace rpc::loop

#endif  // CORE_COMMON_RPC_LOOP_SCOPED_FD_H_
