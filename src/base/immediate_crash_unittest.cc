#include "base/immediate_crash.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <signal.h>
#include <sys/wait.h>

#include <cstdlib>

namespace {

bool DiedOfATrap(int status) {
  return WIFSIGNALED(status) &&
         (WTERMSIG(status) == SIGILL || WTERMSIG(status) == SIGTRAP);
}

TEST(ImmediateCrashDeathTest, EndsTheProcessByATrapWithoutAnyText) {
  EXPECT_EXIT(base::ImmediateCrash(), DiedOfATrap, testing::IsEmpty());
}

TEST(ImmediateCrashDeathTest, RunsNoExitHandler) {
  EXPECT_EXIT(
      {
        std::atexit([] { std::_Exit(0); });
        base::ImmediateCrash();
      },
      DiedOfATrap, testing::IsEmpty());
}

// Compiles without a warning only if the compiler knows that control does not
// come back.
[[maybe_unused]] int NeedsNoReturnAfterwards() {
  base::ImmediateCrash();
}

}  // namespace
