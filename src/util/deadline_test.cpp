#include "util/deadline.h"

#include <gtest/gtest.h>

#include <chrono>

#include "process/child.h"
#include "process/process_test_support.h"

namespace {

using keldo::Clock;
using keldo::MillisecondsUntil;
using keldo::process::ChildDeadline;
using keldo::testing::ScopedEnvironment;
using std::chrono::seconds;

seconds DeadlineFor(const char* text) {
  const ScopedEnvironment environment("KELDO_CHILD_DEADLINE_SECONDS", text);
  return ChildDeadline();
}

TEST(ChildDeadline, IsTenMinutesUnlessTheEnvironmentSaysOtherwise) {
  EXPECT_EQ(ChildDeadline(), seconds(600));
  EXPECT_EQ(DeadlineFor("1"), seconds(1));
  EXPECT_EQ(DeadlineFor("86400"), seconds(86400));
}

TEST(ChildDeadline, IgnoresWhatIsNoUsableNumber) {
  for (const char* text :
       {"", "0", "-1", "86401", "1s", " 1", "1 ", "+1", "1.5", "abc", "99999999999999999999"})
    EXPECT_EQ(DeadlineFor(text), seconds(600)) << '"' << text << '"';
}

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
