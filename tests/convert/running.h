// Runs converters and the tools that make their inputs.
#pragma once

#include <string>
#include <vector>

namespace keldo::testing {

/// How a program ended.
struct Ended {
  int status = -1;    ///< Exit status; -1 when a signal ended it.
  std::string error;  ///< What it wrote to standard error.
};

/// Runs a program to its end, without a shell and with an empty standard input. Kills it after a
/// minute (status 124). `environment` holds "NAME=value" entries in addition to those of this
/// process. `directory` is its working directory; if empty, the current one.
[[nodiscard]] Ended RunProgram(const std::vector<std::string>& command,
                               const std::vector<std::string>& environment = {},
                               const std::string& directory = {});

/// Runs a tool that must succeed. Otherwise throws std::runtime_error with the tool's output.
void RunTool(const std::vector<std::string>& command,
             const std::vector<std::string>& environment = {});

}  // namespace keldo::testing
