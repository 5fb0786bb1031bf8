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

// How much is read at once.
constexpr size_t kChunkBytes = 4096;

// Blocks them in the calling thread, so that the main thread gets them. With
// SIGTTIN blocked, read() fails in a background job instead of stopping it.
void BlockSignals() {
  sigset_t all;
  sigfillset(&all);
  pthread_sigmask(SIG_BLOCK, &all, nullptr);
}

// Appends as much of `text` as the line may have.
void Append(std::string_view text, std::string& line) {
  line.append(text.substr(0, LineReader::kMaxLineBytes + 1 - line.size()));
}

}  // namespace

LineReader::LineReader(rpc::loop::Sequence& sequence,
                       int descriptor,
                       Handler handler)
    : sequence_(sequence),
      descriptor_(descriptor),
      shared_(std::make_shared<Shared>(std::move(handler))),
      wake_(eventfd(0, EFD_CLOEXEC)),
      thread_([this] { Run(); }) {}

LineReader::~LineReader() {
  shared_->handler = nullptr;
  eventfd_write(wake_, 1);
  // As often as the thread may be waiting for.
  shared_->handled.release(kChunkBytes);
  thread_.join();
  close(wake_);
}

void LineReader::Run() {
  BlockSignals();
  std::string line;
  std::string chunk;
  while (ReadMore(chunk)) {
    std::string_view rest = chunk;
    size_t posted = 0;
    for (size_t end; (end = rest.find('\n')) != std::string_view::npos;
         rest.remove_prefix(end + 1)) {
      Append(rest.substr(0, end), line);
      Post(std::exchange(line, {}));
      ++posted;
    }
    Append(rest, line);
    for (; posted > 0; --posted)
      shared_->handled.acquire();
  }
  if (!line.empty())
    Post(std::move(line));
  Post(std::nullopt);
}

bool LineReader::ReadMore(std::string& chunk) {
  std::array<pollfd, 2> polled = {pollfd{wake_, POLLIN, 0},
                                  pollfd{descriptor_, POLLIN, 0}};
  if (poll(polled.data(), polled.size(), -1) < 0 || polled[0].revents != 0)
    return false;
  chunk.resize(kChunkBytes);
  const ssize_t size = read(descriptor_, chunk.data(), chunk.size());
  if (size <= 0)
    return false;
  chunk.resize(static_cast<size_t>(size));
  return true;
}

void LineReader::Post(std::optional<std::string> line) {
  sequence_.Post([shared = shared_, line = std::move(line)]() mutable {
    // Copied: the handler may destroy the reader, whose destructor empties the
    // shared handler while it runs.
    if (const Handler handle = shared->handler)
      handle(std::move(line));
    shared->handled.release();
  });
}

}  // namespace cli
