// Calls a running host, one call after the other, and measures how long each
// takes. attacks.py runs it while other clients attack that host.
//
//   innocent_client SOCKET
//
// Prints "ready" before the first call that counts. Goes on until standard
// input ends, then prints one line of JSON: how many calls there were, their
// median, their 99th percentile and the longest, in nanoseconds.

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <utility>
#include <vector>

#include "bench/support/process_pair.h"
#include "core/common/rpc/loop/loop.h"
#include "core/common/rpc/transport/client.h"
#include "rpc/browser/browser_window.rpc.h"

namespace {

using bench::Fail;
using rpc::transport::Client;

constexpr int kWarmUpCalls = 20;

// A window that the host has opened.
constexpr int kOpenWindow = 2;

bool InputHasEnded() {
  pollfd input = {STDIN_FILENO, POLLIN, 0};
  return poll(&input, 1, 0) != 0;
}

// Returns how long it took, in nanoseconds.
int64_t CallOnce(Client& client) {
  BrowserId window;
  window.set_value(kOpenWindow);
  google::protobuf::BoolValue visible;
  rpc::transport::ClientController controller;
  const auto start = std::chrono::steady_clock::now();
  rpc::BrowserWindow_Stub(&client).IsVisible(&controller, &window, &visible,
                                             nullptr);
  const auto end = std::chrono::steady_clock::now();
  if (controller.Failed())
    Fail(controller.ErrorText());
  if (!visible.value())
    Fail("IsVisible");
  return std::chrono::nanoseconds(end - start).count();
}

void Print(std::vector<int64_t>& times) {
  std::sort(times.begin(), times.end());
  printf("{\"calls\": %zu, \"p50\": %lld, \"p99\": %lld, \"longest\": %lld}\n",
         times.size(), static_cast<long long>(times[times.size() / 2]),
         static_cast<long long>(times[times.size() * 99 / 100]),
         static_cast<long long>(times.back()));
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    fprintf(stderr, "usage: innocent_client SOCKET\n");
    return 2;
  }
  rpc::loop::Loop loop;
  auto connected = Client::Connect(loop, argv[1]);
  if (!connected.ok())
    Fail(connected.status().ToString());
  const std::unique_ptr<Client> client = *std::move(connected);
  for (int i = 0; i < kWarmUpCalls; ++i)
    CallOnce(*client);
  puts("ready");
  fflush(stdout);
  std::vector<int64_t> times;
  do {
    times.push_back(CallOnce(*client));
  } while (!InputHasEnded());
  Print(times);
}
