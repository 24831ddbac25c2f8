// keldothumbctl index list and show: what the index holds.
#pragma once

#include <string>

#include "ctl/console.h"

namespace keldo::ctl {

/// Prints all masks in the index at `database_path`, and how many files it has records of. Returns
/// the exit status.
[[nodiscard]] int ListIndex(const std::string& database_path, bool json, Console& console);

/// Prints what the index knows about a file or directory. Returns the exit status.
[[nodiscard]] int ShowInIndex(const std::string& database_path, const std::string& path, bool json,
                              Console& console);

}  // namespace keldo::ctl
