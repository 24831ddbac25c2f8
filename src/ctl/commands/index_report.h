// keldothumbctl index list and show: what the index holds.
#pragma once

#include <string>

#include "ctl/console.h"

namespace keldo::ctl {

/// Prints all masks and how many files the index at `database_path` knows something of. Returns the
/// exit status.
[[nodiscard]] int ListIndex(const std::string& database_path, bool json, Console& console);

/// Prints what holds for a file or directory. Returns the exit status.
[[nodiscard]] int ShowInIndex(const std::string& database_path, const std::string& path, bool json,
                              Console& console);

}  // namespace keldo::ctl
