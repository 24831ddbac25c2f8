// Decoding in a process that can do no harm.
#pragma once

#include <functional>
#include <span>
#include <string>

#include "convert/sandbox/sandbox.h"

namespace keldo::convert {

enum class Outcome { kDone, kFailed, kUnsupported };

/// How a worker is confined.
struct WorkerPlan {
  std::string name;                  ///< of the input, for messages
  std::span<const int> descriptors;  ///< that the worker keeps, besides standard error
  WorkerLimits limits;
  SandboxParts parts;
};

/// Runs `work` in a copy of this process that dies with this one, keeps only what `plan` says and
/// is confined before `work` begins. `work` reports failures by throwing ImageError, and too little
/// memory by throwing std::bad_alloc.
///
/// kFailed when it failed, crashed or used up its limits; one line on standard error says why.
/// kUnsupported for an ImageError of that kind, without a message. What `work` changes in memory is
/// lost. A note on standard error says which part of the sandbox the kernel lacks.
[[nodiscard]] Outcome RunWorker(const WorkerPlan& plan, const std::function<void()>& work);

}  // namespace keldo::convert
