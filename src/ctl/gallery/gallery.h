// keldothumbctl gallery: a page over the thumbnails of photo libraries.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "ctl/console.h"

namespace keldo::ctl {

/// What to write and where.
struct GalleryRequest {
  std::vector<std::string> directories;    ///< As CheckedDirectories gives them.
  std::string output = "thumbnails.html";  ///< "-" for the standard output.
  std::string title;                       ///< Named after the directories when empty.
  std::optional<std::string> profile;
};

/// Writes the page and tells so. Returns the exit status: 0, or 1 when it could not be written or
/// not all directories could be read (the page then has the others).
[[nodiscard]] int WriteGallery(const GalleryRequest& request, Console& console);

}  // namespace keldo::ctl
