// The lower bound: frames without content, on sockets and epoll alone.
//
// Frames are as long as those of the service on the wire, and are echoed
// without being parsed. Both sides wait with epoll, as every program with more
// than one connection must. An event is one write for each connection.

#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstring>
#include <vector>

#include "bench/support/measurement.h"
#include "bench/support/process_pair.h"

namespace {

using bench::Fail;
using bench::FailWithErrno;
using bench::Measurement;
using bench::Mode;
using bench::ProcessPair;

// A call with a BrowserId. Its reply is three bytes shorter.
constexpr size_t kCallBytes = 13;
// A question about closing a window, or its answer.
constexpr size_t kQuestionBytes = 22;
// An event with a title, and the ids of the streams of one connection.
constexpr size_t kEventBytes = 160;

constexpr size_t kReadBytes = 64 << 10;

class Poller {
 public:
  Poller() : epoll_(epoll_create1(0)) {}

  void Add(int socket) {
    epoll_event event = {.events = EPOLLIN, .data = {.fd = socket}};
    if (epoll_ctl(epoll_, EPOLL_CTL_ADD, socket, &event) != 0)
      FailWithErrno("epoll_ctl");
  }

  // Reads once from each readable socket, and passes the bytes to `on_data`.
  template <typename OnData>
  void Poll(OnData on_data) {
    epoll_event events[64];
    const int count = epoll_wait(epoll_, events, 64, -1);
    for (int i = 0; i < count; ++i) {
      const int socket = events[i].data.fd;
      const ssize_t size = read(socket, buffer_.data(), buffer_.size());
      if (size < 0)
        FailWithErrno("read");
      if (size == 0)
        Fail("the other process is gone");
      on_data(socket, buffer_.data(), static_cast<size_t>(size));
    }
  }

 private:
  const int epoll_;
  std::vector<char> buffer_ = std::vector<char>(kReadBytes);
};

void Write(int socket, const char* data, size_t size) {
  if (write(socket, data, size) != static_cast<ssize_t>(size))
    FailWithErrno("write");
}

int Socket() {
  const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
  if (fd < 0)
    FailWithErrno("socket");
  return fd;
}

sockaddr_un Address(const ProcessPair& pair) {
  sockaddr_un address = {.sun_family = AF_UNIX, .sun_path = {}};
  strncpy(address.sun_path, pair.socket_path().c_str(),
          sizeof(address.sun_path) - 1);
  return address;
}

// Accepts as many connections as the mode has.
std::vector<int> Accept(ProcessPair& pair) {
  const int listener = Socket();
  const sockaddr_un address = Address(pair);
  const auto* generic = reinterpret_cast<const sockaddr*>(&address);
  if (bind(listener, generic, sizeof(address)) != 0 ||
      listen(listener, 64) != 0)
    FailWithErrno("bind");
  pair.Signal();
  std::vector<int> sockets(pair.mode() == Mode::kFanout ? bench::kConnections
                                                        : 1);
  for (int& socket : sockets)
    socket = accept(listener, nullptr, nullptr);
  return sockets;
}

std::vector<int> Connect(ProcessPair& pair) {
  pair.Await();
  const sockaddr_un address = Address(pair);
  const auto* generic = reinterpret_cast<const sockaddr*>(&address);
  std::vector<int> sockets(pair.mode() == Mode::kFanout ? bench::kConnections
                                                        : 1);
  for (int& socket : sockets) {
    socket = Socket();
    if (connect(socket, generic, sizeof(address)) != 0)
      FailWithErrno("connect");
  }
  return sockets;
}

void Echo(Poller& poller) {
  for (;;) {
    poller.Poll([](int socket, const char* data, size_t size) {
      Write(socket, data, size);
    });
  }
}

// Anything that is read is a request for an event.
void Publish(Poller& poller, const std::vector<int>& sockets) {
  const std::vector<char> event(kEventBytes);
  for (;;) {
    poller.Poll([&](int, const char*, size_t) {
      for (const int socket : sockets)
        Write(socket, event.data(), event.size());
    });
  }
}

// Keeps `in_flight` frames of `frame_bytes` under way on one connection.
void MeasureEcho(ProcessPair& pair,
                 Poller& poller,
                 int socket,
                 size_t frame_bytes,
                 int in_flight) {
  const std::vector<char> frames(frame_bytes * in_flight);
  Measurement measurement(pair, in_flight);
  Write(socket, frames.data(), frames.size());
  size_t lap_bytes = 0;
  bool running = true;
  while (running) {
    poller.Poll([&](int, const char* data, size_t size) {
      lap_bytes += size;
      while (running && lap_bytes >= frames.size()) {
        lap_bytes -= frames.size();
        running = measurement.Next();
      }
      if (running)
        Write(socket, data, size);
    });
  }
  measurement.Print();
}

void MeasureFanout(ProcessPair& pair,
                   Poller& poller,
                   const std::vector<int>& sockets) {
  Measurement measurement(pair);
  while (measurement.Next()) {
    Write(sockets.front(), "!", 1);
    size_t missing = kEventBytes * sockets.size();
    while (missing > 0) {
      poller.Poll([&](int, const char*, size_t size) { missing -= size; });
    }
  }
  measurement.Print();
}

void Serve(ProcessPair& pair) {
  const std::vector<int> sockets = Accept(pair);
  Poller poller;
  for (const int socket : sockets)
    poller.Add(socket);
  if (pair.mode() == Mode::kQuestion)
    MeasureEcho(pair, poller, sockets.front(), kQuestionBytes, 1);
  else if (pair.mode() == Mode::kFanout)
    Publish(poller, sockets);
  else
    Echo(poller);
}

void Call(ProcessPair& pair) {
  const std::vector<int> sockets = Connect(pair);
  Poller poller;
  for (const int socket : sockets)
    poller.Add(socket);
  if (pair.mode() == Mode::kQuestion)
    Echo(poller);
  else if (pair.mode() == Mode::kFanout)
    MeasureFanout(pair, poller, sockets);
  else
    MeasureEcho(pair, poller, sockets.front(), kCallBytes,
                pair.mode() == Mode::kUnary ? 1 : bench::kCallsInFlight);
}

}  // namespace

int main(int argc, char** argv) {
  return bench::RunPair(argc, argv, {.serve = Serve, .call = Call});
}
