// keldothumbctl queue: what the work queue holds, and working it off.
#pragma once

#include "ctl/commands/command.h"
#include "ctl/library/work_in_hand.h"

namespace keldo::ctl {

/// Prints the entries that are waiting and those in work. Returns the exit status.
[[nodiscard]] int ListQueue(const QueuePaths& paths, bool json, Console& console);

/// Makes the thumbnails of the directories in the queue. Returns the exit status.
[[nodiscard]] int RunQueue(const QueuePaths& paths, const MakeSettings& settings,
                           const CommandContext& context);

}  // namespace keldo::ctl
