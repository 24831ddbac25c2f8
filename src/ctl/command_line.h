// The command line of keldothumbctl.
#pragma once

#include <iosfwd>
#include <string>
#include <vector>

namespace keldo::ctl {

/// Runs the command that `arguments` (without the program's name) give, on the index database at
/// `database_path`. Returns the exit status: 0 done, 1 cannot be done, 2 no such command or option.
[[nodiscard]] int RunCommandLine(const std::vector<std::string>& arguments,
                                 const std::string& database_path, std::ostream& out,
                                 std::ostream& err);

}  // namespace keldo::ctl
