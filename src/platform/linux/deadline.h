// How long one piece of outside work may take.
#pragma once

#include <chrono>

namespace keldo::platform {

using Clock = std::chrono::steady_clock;

/// Seconds that a child process may run before it is killed with its group: 600, which no photo
/// comes near, or what the environment variable KELDO_CHILD_DEADLINE_SECONDS says (1 to 86400;
/// anything else is ignored).
[[nodiscard]] std::chrono::seconds ChildDeadline();

/// Milliseconds from now to `deadline` for poll(2): never negative, rounded up.
[[nodiscard]] int MillisecondsUntil(Clock::time_point deadline);

}  // namespace keldo::platform
