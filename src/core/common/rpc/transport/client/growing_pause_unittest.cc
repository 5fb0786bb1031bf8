#include "core/common/rpc/transport/client/growing_pause.h"

#include <gtest/gtest.h>

#include <vector>

namespace rpc::transport {
namespace {

using std::chrono::milliseconds;

std::vector<int64_t> Take(GrowingPause& pause, int count) {
  std::vector<int64_t> taken;
  for (int i = 0; i < count; ++i) {
    taken.push_back(pause.Next().count());
  }
  return taken;
}

TEST(GrowingPause, DoublesUpToTheLongest) {
  GrowingPause pause(milliseconds(50), milliseconds(5'000));
  EXPECT_EQ(Take(pause, 9), (std::vector<int64_t>{50, 100, 200, 400, 800, 1600,
                                                  3200, 5000, 5000}));
  GrowingPause uneven(milliseconds(40), milliseconds(100));
  EXPECT_EQ(Take(uneven, 3), (std::vector<int64_t>{40, 80, 100}));
}

TEST(GrowingPause, IsNeverLongerThanTheLongest) {
  GrowingPause pause(milliseconds(70), milliseconds(50));
  EXPECT_EQ(Take(pause, 2), (std::vector<int64_t>{50, 50}));
  GrowingPause endless(milliseconds::max(), milliseconds::max());
  EXPECT_EQ(Take(endless, 2),
            std::vector<int64_t>(2, milliseconds::max().count()));
}

TEST(GrowingPause, BeginsAnewAfterAConnectionAsLongAsTheLongest) {
  GrowingPause pause(milliseconds(50), milliseconds(5'000));
  Take(pause, 3);
  pause.ConnectionLasted(milliseconds(4'999));
  EXPECT_EQ(Take(pause, 1), std::vector<int64_t>{400});
  pause.ConnectionLasted(milliseconds(5'000));
  EXPECT_EQ(Take(pause, 2), (std::vector<int64_t>{50, 100}));
}

}  // namespace
}  // namespace rpc::transport
