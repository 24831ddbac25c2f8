// Running converters and the tools that make their input.
#pragma once

#include <string>
#include <vector>

namespace keldo::testing {

/// How a program ended.
struct Ended {
  int status = -1;    ///< Exit status; -1 when a signal ended it.
  std::string error;  ///< What it wrote to standard error.
};

/// Runs a program to its end, without a shell, its standard input empty; it is ended after a minute
/// (status 124). `environment` holds "NAME=value" entries beside those of this process. `directory`
/// is where it runs; empty for here.
[[nodiscard]] Ended RunProgram(const std::vector<std::string>& command,
                               const std::vector<std::string>& environment = {},
                               const std::string& directory = {});

/// Runs a tool that must succeed; throws std::runtime_error with what it said.
void RunTool(const std::vector<std::string>& command,
             const std::vector<std::string>& environment = {});

}  // namespace keldo::testing
