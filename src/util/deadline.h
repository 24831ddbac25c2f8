// Waiting until a point in time.
#pragma once

#include <chrono>

namespace keldo {

using Clock = std::chrono::steady_clock;

/// Milliseconds from now to `deadline` for poll(2): never negative, rounded up.
[[nodiscard]] int MillisecondsUntil(Clock::time_point deadline);

}  // namespace keldo
