#include "core/common/rpc/loop/signal_watch.h"

#include <gtest/gtest.h>
#include <signal.h>

#include <memory>
#include <vector>

namespace rpc::loop {
namespace {

TEST(SignalWatch, CallsWithEachSignal) {
  Loop loop;
  std::vector<int> signals;
  SignalWatch watch(loop, {SIGUSR1, SIGUSR2},
                    [&](int signal) { signals.push_back(signal); });
  raise(SIGUSR1);
  EXPECT_TRUE(loop.RunUntil([&] { return signals.size() == 1; }));
  raise(SIGUSR2);
  EXPECT_TRUE(loop.RunUntil([&] { return signals.size() == 2; }));
  EXPECT_EQ(signals, (std::vector<int>{SIGUSR1, SIGUSR2}));
}

TEST(SignalWatch, MayBeDestroyedByItsHandler) {
  Loop loop;
  std::unique_ptr<SignalWatch> watch;
  watch = std::make_unique<SignalWatch>(
      loop, std::initializer_list<int>{SIGUSR1}, [&](int) { watch.reset(); });
  raise(SIGUSR1);
  loop.Run();
  EXPECT_EQ(watch, nullptr);
}

}  // namespace
}  // namespace rpc::loop
