#include "platform/linux/deadline.h"

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <string_view>

namespace keldo::platform {
namespace {

constexpr long kDefaultSeconds = 600;
constexpr long kLongestSeconds = 86400;

}  // namespace

std::chrono::seconds ChildDeadline() {
  const char* text = std::getenv("KELDO_CHILD_DEADLINE_SECONDS");
  if (text == nullptr) return std::chrono::seconds(kDefaultSeconds);
  const std::string_view digits(text);
  long seconds = 0;
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), seconds);
  const bool usable = error == std::errc() && end == digits.data() + digits.size() &&
                      seconds >= 1 && seconds <= kLongestSeconds;
  return std::chrono::seconds(usable ? seconds : kDefaultSeconds);
}

int MillisecondsUntil(Clock::time_point deadline) {
  const Clock::time_point now = Clock::now();
  // Asked first: what is far enough in the past would overflow the difference.
  if (deadline <= now) return 0;
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - now);
  constexpr long long kLongestPoll = kLongestSeconds * 1000;
  return static_cast<int>(std::min<long long>(left.count(), kLongestPoll));
}

}  // namespace keldo::platform
