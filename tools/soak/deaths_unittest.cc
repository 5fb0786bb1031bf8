#include "tools/soak/deaths.h"

#include <gtest/gtest.h>

namespace soak {
namespace {

using std::chrono::milliseconds;

class DeathsTest : public ::testing::Test {
 protected:
  static Deaths::TimePoint At(int ms) {
    return Deaths::TimePoint(milliseconds(ms));
  }

  SettlingTimes times_;
  Deaths deaths_{&times_};
};

TEST_F(DeathsTest, CountUntilTheLastOfTheirQuestionsIsSettled) {
  deaths_.Add(1, 3, At(100));
  deaths_.OnSettled(1, At(101));
  deaths_.OnSettled(1, At(102));
  EXPECT_EQ(times_.count(), 0u);
  EXPECT_FALSE(deaths_.all_settled());
  deaths_.OnSettled(1, At(107));
  EXPECT_EQ(times_.count(), 1u);
  EXPECT_EQ(times_.longest(), milliseconds(7));
  EXPECT_TRUE(deaths_.all_settled());
}

TEST_F(DeathsTest, AreToldApartByTheirClients) {
  deaths_.Add(1, 1, At(100));
  deaths_.Add(2, 1, At(200));
  deaths_.OnSettled(2, At(203));
  EXPECT_EQ(times_.longest(), milliseconds(3));
  EXPECT_FALSE(deaths_.all_settled());
  deaths_.OnSettled(1, At(204));
  EXPECT_EQ(times_.count(), 2u);
  EXPECT_EQ(times_.longest(), milliseconds(104));
}

TEST_F(DeathsTest, OfClientsThatHadNoQuestionsAreNotCounted) {
  deaths_.Add(1, 0, At(100));
  EXPECT_TRUE(deaths_.all_settled());
  deaths_.OnSettled(1, At(101));
  deaths_.OnSettled(2, At(101));
  EXPECT_EQ(times_.count(), 0u);
}

TEST_F(DeathsTest, ThatAreForgottenAreNotCounted) {
  deaths_.Add(1, 1, At(100));
  deaths_.Forget();
  EXPECT_TRUE(deaths_.all_settled());
  deaths_.OnSettled(1, At(101));
  EXPECT_EQ(times_.count(), 0u);
}

}  // namespace
}  // namespace soak
