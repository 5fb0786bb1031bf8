// A byte there and back over a socket pair, between a client that blocks, on a
// thread of its own, and a server on a loop: the loop alone, and on one thread
// with GLib's main loop.

#include "core/common/rpc/loop/glib_main_loop.h"

#include <benchmark/benchmark.h>
#include <glib-unix.h>
#include <glib.h>
#include <sys/socket.h>
#include <unistd.h>

#include <thread>
#include <vector>

#include "absl/log/absl_check.h"
#include "core/common/rpc/loop/loop.h"
#include "core/common/rpc/loop/readable_watch.h"
#include "core/common/rpc/loop/scoped_fd.h"

namespace rpc::loop {
namespace {

struct SocketPair {
  SocketPair() {
    int ends[2];
    ABSL_PCHECK(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) == 0);
    client = ScopedFd(ends[0]);
    server = ScopedFd(ends[1]);
  }

  ScopedFd client;
  ScopedFd server;
};

// The server: sends back what it gets. Stops the loop when the client has gone.
class Echo {
 public:
  Echo(Loop& loop, int socket)
      : watch_(loop, socket, [&loop, socket] {
          char byte;
          if (read(socket, &byte, 1) != 1) {
            return loop.Stop();
          }
          ABSL_PCHECK(write(socket, &byte, 1) == 1);
        }) {}

 private:
  ReadableWatch watch_;
};

// Runs the benchmark's client on this thread, the server on another one.
template <typename Serve>
void RoundTrips(benchmark::State& state, const Serve& serve) {
  SocketPair sockets;
  std::thread server([&] { serve(sockets.server.get()); });
  char byte = '!';
  for (auto iteration : state) {
    ABSL_PCHECK(write(sockets.client.get(), &byte, 1) == 1);
    ABSL_PCHECK(read(sockets.client.get(), &byte, 1) == 1);
  }
  sockets.client = ScopedFd();
  server.join();
}

void BM_RoundTripOfTheLoopAlone(benchmark::State& state) {
  RoundTrips(state, [](int socket) {
    Loop loop;
    const Echo echo(loop, socket);
    loop.Run();
  });
}
BENCHMARK(BM_RoundTripOfTheLoopAlone)->UseRealTime();

// The argument is how many descriptors GLib watches meanwhile. A program with
// windows and pages has some eight.
void BM_RoundTripWithGlib(benchmark::State& state) {
  RoundTrips(state, [&](int socket) {
    Loop loop;
    GMainContext* const context = g_main_context_new();
    std::vector<SocketPair> others(state.range(0));
    for (const SocketPair& other : others) {
      GSource* const source = g_unix_fd_source_new(other.server.get(), G_IO_IN);
      g_source_attach(source, context);
      g_source_unref(source);
    }
    {
      GlibMainLoop main_loop(loop, context);
      const Echo echo(loop, socket);
      main_loop.Run();
    }
    g_main_context_unref(context);
  });
}
BENCHMARK(BM_RoundTripWithGlib)->Arg(0)->Arg(8)->Arg(32)->UseRealTime();

}  // namespace
}  // namespace rpc::loop
