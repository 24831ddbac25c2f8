#include "ctl/commands/size_text.h"

#include <array>
#include <cstdio>

#include "ctl/console.h"

namespace keldo::ctl {

std::string SizeText(std::int64_t bytes) {
  constexpr double kStep = 1024;
  constexpr double kWholeFrom = 9.95;
  constexpr double kNextFrom = 1023.5;  // what would be shown as 1024 is shown as 1.0 of the next
  constexpr std::array<const char*, 4> kUnits{"KiB", "MiB", "GiB", "TiB"};
  if (bytes < static_cast<std::int64_t>(kStep)) return Counted(bytes, "byte");
  double size = static_cast<double>(bytes) / kStep;
  std::size_t unit = 0;
  for (; size >= kNextFrom && unit + 1 < kUnits.size(); ++unit)
    size /= kStep;
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), size < kWholeFrom ? "%.1f %s" : "%.0f %s", size,
                kUnits.at(unit));
  return text.data();
}

}  // namespace keldo::ctl
