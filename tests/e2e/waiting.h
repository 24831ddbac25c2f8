// Waiting for what a run under way is about to do.
#pragma once

#include <functional>

#include "e2e/sandbox.h"

namespace keldo::testing {

/// Looks every millisecond until `condition` holds. Throws std::runtime_error after ten seconds.
void WaitUntil(const std::function<bool()>& condition);

/// Waits until the stand-ins were started this many times in the run under way.
void WaitForInvocations(const Sandbox& box, std::size_t count);

}  // namespace keldo::testing
