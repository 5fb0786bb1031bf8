#include "tools/cli/line_reader.h"

#include <poll.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <utility>

namespace cli {
namespace {

// Blocks them in the calling thread, so that the main thread gets them. With
// SIGTTIN blocked, read() fails in a background job instead of stopping it.
void BlockSignals() {
  sigset_t all;
  sigfillset(&all);
  pthread_sigmask(SIG_BLOCK, &all, nullptr);
}

}  // namespace

LineReader::LineReader(rpc::loop::Sequence& sequence,
                       int descriptor,
                       Handler handler)
    : sequence_(sequence),
      descriptor_(descriptor),
      handler_(std::make_shared<Handler>(std::move(handler))),
      wake_(eventfd(0, EFD_CLOEXEC)),
      thread_([this] { Run(); }) {}

LineReader::~LineReader() {
  *handler_ = nullptr;
  eventfd_write(wake_, 1);
  thread_.join();
  close(wake_);
}

void LineReader::Run() {
  BlockSignals();
  std::string buffer;
  while (ReadMore(buffer)) {
    size_t start = 0;
    for (size_t end; (end = buffer.find('\n', start)) != std::string::npos;
         start = end + 1) {
      Post(buffer.substr(start, end - start));
    }
    buffer.erase(0, start);
  }
  if (!buffer.empty())
    Post(std::move(buffer));
  Post(std::nullopt);
}

bool LineReader::ReadMore(std::string& buffer) {
  std::array<pollfd, 2> polled = {pollfd{wake_, POLLIN, 0},
                                  pollfd{descriptor_, POLLIN, 0}};
  if (poll(polled.data(), polled.size(), -1) < 0 || polled[0].revents != 0)
    return false;
  std::array<char, 4096> chunk;
  const ssize_t size = read(descriptor_, chunk.data(), chunk.size());
  if (size <= 0)
    return false;
  buffer.append(chunk.data(), size);
  return true;
}

void LineReader::Post(std::optional<std::string> line) {
  sequence_.Post([handler = handler_, line = std::move(line)]() mutable {
    // Copied: the handler may destroy the reader, whose destructor empties the
    // shared handler while it runs.
    if (const Handler handle = *handler)
      handle(std::move(line));
  });
}

}  // namespace cli
