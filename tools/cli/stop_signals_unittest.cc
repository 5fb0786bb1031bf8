#include "tools/cli/stop_signals.h"

#include <signal.h>
#include <unistd.h>

#include <optional>

#include "gtest/gtest.h"

namespace cli {
namespace {

constexpr int kAll[] = {SIGINT, SIGQUIT, SIGTERM, SIGHUP};

TEST(StopSignals, EachOfThemCallsTheHandler) {
  for (const int signal : kAll) {
    rpc::loop::Loop loop;
    int calls = 0;
    const StopSignals signals(loop, [&] { ++calls; });
    raise(signal);
    loop.Run();
    EXPECT_EQ(1, calls);
  }
}

TEST(StopSignals, TheHandlerMayDestroyThem) {
  rpc::loop::Loop loop;
  std::optional<StopSignals> signals;
  bool called = false;
  signals.emplace(loop, [&] {
    signals.reset();
    called = true;
  });
  raise(SIGTERM);
  loop.Run();
  EXPECT_TRUE(called);
}

TEST(StopSignalsDeathTest, ASecondSignalEndsTheProcessAtOnce) {
  for (const int second : kAll) {
    EXPECT_EXIT(
        {
          rpc::loop::Loop loop;
          const StopSignals signals(loop, [&] { raise(second); });
          raise(SIGTERM);
          loop.Run();
          _exit(0);
        },
        ::testing::KilledBySignal(second), "");
  }
}

TEST(StopSignalsDeathTest, HangupsThatAreIgnoredStayIgnored) {
  EXPECT_EXIT(
      {
        signal(SIGHUP, SIG_IGN);
        rpc::loop::Loop loop;
        int calls = 0;
        const StopSignals signals(loop, [&] { ++calls; });
        raise(SIGHUP);
        raise(SIGTERM);
        loop.Run();
        raise(SIGHUP);
        _exit(calls == 1 ? 0 : 1);
      },
      ::testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace cli
