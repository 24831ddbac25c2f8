// keldothumbctl gallery: an HTML page of the thumbnails of photo libraries.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "ctl/console.h"

namespace keldo::ctl {

/// What to write and where.
struct GalleryRequest {
  std::vector<std::string> directories;    ///< As CheckedDirectories returns them.
  std::string output = "thumbnails.html";  ///< "-" for standard output.
  std::string title;                       ///< If empty, the directories' names are used.
  std::optional<std::string> profile;
};

/// Writes the page and reports it on the console. Returns the exit status: 0, or 1 when the page
/// could not be written or a directory could not be read (the page then has the others).
[[nodiscard]] int WriteGallery(const GalleryRequest& request, Console& console);

}  // namespace keldo::ctl
