#include "tools/cli/line_writer.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "absl/strings/str_cat.h"
#include "tools/cli/printable.h"

namespace cli {
namespace {

using rpc::loop::ScopedFd;

// Opens the same pipe or terminal once more, in non-blocking mode. A file is
// not opened again: it would be written from its beginning, over what others
// write to the original descriptor. Nor are sockets, which cannot be.
ScopedFd OpenAgain(int descriptor) {
  struct stat info;
  if (fstat(descriptor, &info) != 0 ||
      !(S_ISFIFO(info.st_mode) || S_ISCHR(info.st_mode))) {
    return ScopedFd();
  }
  return ScopedFd(open(absl::StrCat("/proc/self/fd/", descriptor).c_str(),
                       O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
}

bool HasRoom(int descriptor) {
  pollfd polled = {descriptor, POLLOUT, 0};
  return poll(&polled, 1, 0) == 1 && polled.revents == POLLOUT;
}

}  // namespace

LineWriter::LineWriter(int descriptor, std::string noun)
    : noun_(std::move(noun)),
      own_(OpenAgain(descriptor)),
      descriptor_(own_.is_valid() ? own_.get() : descriptor) {}

void LineWriter::Write(std::string_view line) {
  const std::lock_guard<std::mutex> lock(mutex_);
  if (dropped_ > 0 && Begin(DroppedText()))
    dropped_ = 0;
  if (dropped_ > 0 || !Begin(line))
    ++dropped_;
}

bool LineWriter::Begin(std::string_view line) {
  if (!Finish())
    return false;
  rest_ = absl::StrCat(Shorten(line, kMaxLineBytes - 1), "\n");
  const size_t size = rest_.size();
  Finish();
  if (rest_.size() < size)
    return true;
  rest_.clear();
  return false;
}

bool LineWriter::Finish() {
  while (!rest_.empty()) {
    if (!HasRoom(descriptor_))
      return false;
    const ssize_t written = write(descriptor_, rest_.data(), rest_.size());
    if (written < 0 && errno == EINTR)
      continue;
    if (written <= 0)
      return false;
    rest_.erase(0, static_cast<size_t>(written));
  }
  return true;
}

std::string LineWriter::DroppedText() const {
  return absl::StrCat(dropped_, " ", noun_, dropped_ == 1 ? " was" : "s were",
                      " dropped: nobody read ", dropped_ == 1 ? "it" : "them",
                      " in time.");
}

}  // namespace cli
