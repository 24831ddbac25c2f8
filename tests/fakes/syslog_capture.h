// The system log of a test: lines that would go to syslog are kept in memory instead.
//
// A test binary that links this defines syslog, vsyslog and their fortified forms itself, so
// nothing that it runs can reach the machine's log.
#pragma once

#include <ostream>
#include <string>
#include <vector>

namespace keldo::testing {

/// One line of the log, with %m and all arguments filled in.
struct LogLine {
  int priority = 0;
  std::string text;

  bool operator==(const LogLine&) const = default;
};

/// Shows a line in a test's failure message.
std::ostream& operator<<(std::ostream& out, const LogLine& line);

/// The lines since the last ClearSyslog, oldest first.
[[nodiscard]] const std::vector<LogLine>& CapturedSyslog();

/// Forgets what was logged.
void ClearSyslog();

}  // namespace keldo::testing
