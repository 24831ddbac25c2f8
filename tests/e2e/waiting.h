// Waits for an event in the current run.
#pragma once

#include <functional>

#include "e2e/sandbox.h"

namespace keldo::testing {

/// Checks every millisecond until `condition` holds. Throws std::runtime_error after 30 seconds.
void WaitUntil(const std::function<bool()>& condition);

/// Waits until the stand-ins were started this many times in the current run.
void WaitForInvocations(const Sandbox& box, std::size_t count);

}  // namespace keldo::testing
