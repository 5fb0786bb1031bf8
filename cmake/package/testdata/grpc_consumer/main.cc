// Listens for gRPC's clients, and says so.

#include <cstdio>

#include "core/common/rpc/grpc/server.h"
#include "core/common/rpc/loop/loop.h"
#include "rpc/browser/browser_window.rpc.h"

class WindowService : public rpc::BrowserWindowRpc {};

int main() {
  rpc::loop::Loop loop;
  WindowService service;
  rpc::grpc::Server server(loop);
  server.AddService(&service);
  const absl::StatusOr<int> port = server.Listen("127.0.0.1:0");
  std::printf("%s\n", port.ok() && *port > 0 ? "listens" : "does not listen");
}
