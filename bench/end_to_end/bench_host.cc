// The service that rpc_bench measures, by itself: for clients and gateways that
// are programs of their own. gateway.py runs it.
//
//   bench_host SOCKET
//
// Prints "ready" when it listens, and serves until it is killed.

#include <cstdio>

#include "bench/end_to_end/window_service.h"
#include "bench/support/process_pair.h"
#include "core/common/rpc/loop/loop.h"
#include "core/common/rpc/reflection/reflection_service.h"
#include "core/common/rpc/transport/server.h"

int main(int argc, char** argv) {
  if (argc != 2) {
    fprintf(stderr, "usage: bench_host SOCKET\n");
    return 2;
  }
  rpc::loop::Loop loop;
  bench::WindowService service;
  rpc::transport::Server server(loop);
  server.AddService(&service);
  rpc::reflection::ReflectionService reflection(
      [&server] { return server.Services(); });
  server.AddService(&reflection);
  const absl::Status listening = server.Listen(argv[1]);
  if (!listening.ok())
    bench::Fail(listening.ToString());
  puts("ready");
  fflush(stdout);
  loop.Run();
}
