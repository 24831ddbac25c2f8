// The command line of keldothumbctl.
#pragma once

#include <iosfwd>
#include <string>
#include <vector>

#include "ctl/commands/command.h"

namespace keldo::ctl {

/// Carries out one command line; `arguments` do not include the program's name. Returns the exit
/// status: 0 when all is well, 1 when something failed, 2 for wrong usage.
[[nodiscard]] int RunCommandLine(const std::vector<std::string>& arguments,
                                 const Environment& environment, std::ostream& out,
                                 std::ostream& err);

}  // namespace keldo::ctl
