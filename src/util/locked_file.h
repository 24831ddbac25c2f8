// Files that several programs rewrite, guarded by a lock on the file itself.
#pragma once

#include <functional>
#include <string>

#include "util/unique_fd.h"

namespace keldo {

/// Opens the file at `path` by `open` and takes an exclusive flock(2) on it, again from the start
/// where the file was replaced or removed while its lock was waited for: what is written to a file
/// that no longer stands at its path is lost. Waits up to ten seconds, with termination requests
/// let in; holders of the lock write and go, so who keeps it longer hangs. Invalid with errno set
/// when `open` gives nothing, or EBUSY at the end of the wait. Silent.
[[nodiscard]] UniqueFd OpenLocked(const std::string& path, const std::function<UniqueFd()>& open);

}  // namespace keldo
