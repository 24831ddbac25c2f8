// Running a program for what it says.
#pragma once

#include <chrono>
#include <string>
#include <vector>

namespace keldo::ctl {

struct ProgramOutput {
  std::string problem;  ///< Why it could not be started, or that it had to be ended; else empty.
  int status = -1;      ///< Its exit status; 128 and the signal's number when one ended it.
  std::string text;     ///< What it wrote to standard output and standard error, up to 1 MiB.

  /// The first line that is not empty.
  [[nodiscard]] std::string FirstLine() const;
};

/// Runs `program` with nothing to read, and ends it and what it has started at the deadline.
[[nodiscard]] ProgramOutput RunForOutput(const std::string& program,
                                         const std::vector<std::string>& arguments,
                                         std::chrono::milliseconds deadline);

}  // namespace keldo::ctl
