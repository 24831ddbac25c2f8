// The photo's status, before rendering and at the commit.
#pragma once

#include <string>

#include "platform/file.h"

namespace keldo {

/// Fills the cleared `record` for a photo. False when it cannot be stat'ed (silent).
[[nodiscard]] inline bool StatSource(const std::string& path, KLIBCFileRecord& record) {
  constexpr int kStandardAndPlatformFields = 9;
  record = {};
  return KLIBCFileStat(path.c_str(), kStandardAndPlatformFields, &record) == 0;
}

}  // namespace keldo
