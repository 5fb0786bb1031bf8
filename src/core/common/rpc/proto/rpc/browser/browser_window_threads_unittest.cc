// What the generated class promises to threads. Apart from the other dispatch
// tests, since those count allocations by replacing functions that
// ThreadSanitizer has replaced already.

#include <google/protobuf/message.h>
#include <gtest/gtest.h>

#include <atomic>
#include <barrier>
#include <memory>
#include <thread>
#include <vector>

#include "core/common/rpc/testing/recording_call.h"
#include "rpc/browser/browser_window.rpc.h"
#include "rpc/browser/browser_window_method_table.h"

namespace rpc {
namespace {

using google::protobuf::Message;
using torvane::CountingClosure;
using torvane::RecordingController;

TEST(Dispatch, RunsOnAnyThreadAndOnSeveralAtOnce) {
  BrowserWindowRpc service;
  constexpr int kThreads = 4;
  std::barrier start(kThreads);
  std::vector<std::thread> threads;
  std::atomic<int> completed = 0;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&] {
      start.arrive_and_wait();
      for (int i = 0; i < kUnaryMethodCount; ++i) {
        const auto* method = BrowserWindowRpc::descriptor()->method(i);
        const std::unique_ptr<Message> response(
            service.GetResponsePrototype(method).New());
        RecordingController controller;
        CountingClosure done;
        service.CallMethod(method, &controller,
                           &service.GetRequestPrototype(method), response.get(),
                           &done);
        completed += done.runs();
      }
    });
  }
  for (std::thread& thread : threads)
    thread.join();
  EXPECT_EQ(completed, kThreads * kUnaryMethodCount);
}

}  // namespace
}  // namespace rpc
