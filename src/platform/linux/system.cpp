#include "platform/system.h"

#include <syslog.h>

#include <algorithm>
#include <charconv>
#include <cstdarg>
#include <optional>
#include <string>
#include <string_view>

#include "util/files.h"
#include "util/text.h"

namespace {

// "MemTotal:       16315208 kB" gives 16315208.
std::optional<long> MemTotalIn(std::string_view line) {
  constexpr std::string_view kName = "MemTotal:";
  if (!line.starts_with(kName)) return std::nullopt;
  line.remove_prefix(std::min(line.find_first_not_of(' ', kName.size()), line.size()));
  long total = 0;
  const auto parsed = std::from_chars(line.data(), line.data() + line.size(), total);
  if (parsed.ec != std::errc() || total <= 0) return std::nullopt;
  return total;
}

}  // namespace

// From the file rather than sysinfo(2): only the file shows that a container has less than the
// machine.
int GetTotalMemory(long* total_kib) {
  const std::optional<std::string> content = keldo::ReadRegularFile("/proc/meminfo");
  std::string_view rest;
  if (content) rest = *content;
  while (!rest.empty()) {
    if (const auto total = MemTotalIn(keldo::TakeLine(rest))) {
      *total_kib = *total;
      return 0;
    }
  }
  return -1;
}

void AppLogError(int level, const char* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  // The levels are the system log's own, 3 being LOG_ERR.
  ::vsyslog(LOG_PRI(level), format, arguments);
  va_end(arguments);
}
