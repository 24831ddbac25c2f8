#include "util/deadline.h"

#include <algorithm>

namespace keldo {
namespace {

constexpr long long kLongestPollMs = 86'400'000;

}  // namespace

int MillisecondsUntil(Clock::time_point deadline) {
  const Clock::time_point now = Clock::now();
  // Asked first: what is far enough in the past would overflow the difference.
  if (deadline <= now) return 0;
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - now);
  return static_cast<int>(std::min<long long>(left.count(), kLongestPollMs));
}

}  // namespace keldo
