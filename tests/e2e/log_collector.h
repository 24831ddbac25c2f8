// Collects what a program in the sandbox writes to the system log.
#pragma once

#include <mutex>
#include <ostream>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "util/handles.h"

namespace keldo::testing {

struct LogLine {
  int priority = 0;  ///< 3 is the error level, 7 the debug level.
  std::string text;

  bool operator==(const LogLine&) const = default;
};

std::ostream& operator<<(std::ostream& out, const LogLine& line);

/// Parses a packet as the C library sends it: "<11>Nov 21 05:42:10 keldothumb: text". A packet in
/// another form, or of another facility than "user", becomes a line with priority -1.
[[nodiscard]] LogLine ParseLogPacket(std::string_view packet);

/// A datagram socket at `path`. A separate thread reads it, so that no writer ever waits.
class LogCollector {
 public:
  explicit LogCollector(const std::string& path);
  ~LogCollector();
  LogCollector(const LogCollector&) = delete;
  LogCollector& operator=(const LogCollector&) = delete;

  /// All lines since the last call. The list is complete once the writers have ended.
  [[nodiscard]] std::vector<LogLine> TakeLines();

 private:
  void Collect();
  void ReadAll();

  UniqueFd socket_;
  UniqueFd stop_;
  std::mutex mutex_;
  std::vector<LogLine> lines_;
  std::thread thread_;
};

}  // namespace keldo::testing
