// What hosts that a test plays by hand have in common.

#ifndef TOOLS_RPCCTL_FALSE_HOST_TEST_SUPPORT_H_
#define TOOLS_RPCCTL_FALSE_HOST_TEST_SUPPORT_H_

#include <sys/socket.h>

#include "core/common/rpc/loop/loop.h"
#include "core/common/rpc/loop/readable_watch.h"
#include "core/common/rpc/loop/scoped_fd.h"
#include "gtest/gtest.h"

namespace rpcctl {

// Waits for the next connection.
inline rpc::loop::ScopedFd Accept(rpc::loop::Loop& loop, int listener) {
  rpc::loop::ScopedFd connection;
  const rpc::loop::ReadableWatch watch(loop, listener, [&] {
    connection = rpc::loop::ScopedFd(accept(listener, nullptr, nullptr));
  });
  EXPECT_TRUE(loop.RunUntil([&] { return connection.is_valid(); }));
  return connection;
}

}  // namespace rpcctl

#endif  // TOOLS_RPCCTL_FALSE_HOST_TEST_SUPPORT_H_
