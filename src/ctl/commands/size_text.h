// Sizes as people read them.
#pragma once

#include <cstdint>
#include <string>

namespace keldo::ctl {

/// "0 bytes", "812 bytes", "1.5 KiB", "12 MiB".
[[nodiscard]] std::string SizeText(std::int64_t bytes);

}  // namespace keldo::ctl
