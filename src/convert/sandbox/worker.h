// Work in a process that can do no harm.
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
/// is confined before `work` begins. `work` tells of failures by ImageError, and of too little
/// memory by std::bad_alloc.
///
/// kFailed when it failed, crashed or used up its limits; one line on standard error said why.
/// kUnsupported for an ImageError of that kind, without a message. What `work` changes in memory is
/// lost. A kernel that lacks a part of the sandbox is noted on standard error.
[[nodiscard]] Outcome RunWorker(const WorkerPlan& plan, const std::function<void()>& work);

/// Makes sure that the ends of our children are reported to us: whoever started this program with
/// SIGCHLD ignored passed that on.
void KeepExitStatuses();

/// Waits for the end of a child and returns its wait status; -1 when there is no such child.
[[nodiscard]] int WaitForChild(pid_t child);

}  // namespace keldo::convert
