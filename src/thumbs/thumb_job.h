// What one run of the thumbnail job works on.
#pragma once

#include <string>

#include "thumbs/thumb_profile.h"

namespace keldo {

/// One target directory and the profiles read for it. The per-path entry owns both and keeps them
/// alive until the job returns.
struct ThumbJob {
  std::string path;  ///< Exactly as it came from the command line or the walk.
  const ThumbProfileList* profiles = nullptr;
};

}  // namespace keldo
