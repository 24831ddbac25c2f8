#include "util/deadline.h"

#include <gtest/gtest.h>

#include <chrono>

namespace {

using keldo::Clock;
using keldo::MillisecondsUntil;
using std::chrono::seconds;

TEST(MillisecondsUntil, IsNeverNegativeAndRoundedUp) {
  EXPECT_EQ(MillisecondsUntil(Clock::now() - seconds(5)), 0);
  EXPECT_EQ(MillisecondsUntil(Clock::time_point::min()), 0);
  const Clock::time_point soon = Clock::now() + std::chrono::microseconds(100);
  const int left = MillisecondsUntil(soon);
  EXPECT_TRUE(left == 1 || (left == 0 && Clock::now() >= soon)) << left;
  EXPECT_GT(MillisecondsUntil(Clock::now() + std::chrono::hours(24 * 365)), 86399999);
  EXPECT_GT(MillisecondsUntil(Clock::time_point::max()), 86399999);
}

}  // namespace
