// From profiles to rendered thumbnails: the requests of one phase of one photo.
#pragma once

#include <string>

#include "thumbs/thumb_profile.h"

namespace keldo {

/// Renders the thumbnails of a phase that are not up to date. `path` is the image to read, `ea_dir`
/// the photo's metadata directory (made when missing), `auto_orient` whether the image's
/// orientation tag is followed, `rotate` degrees clockwise (0 or less: none). True when nothing is
/// left to do. False when the image is missing (no trace is left) or the rendering failed, and
/// every profile of the phase then carries a failure marker: a phase is redone as a whole.
[[nodiscard]] bool MakePhotoThumbRequests(const ThumbProfileList& profiles, int phase,
                                          const std::string& path, const std::string& ea_dir,
                                          bool auto_orient, int rotate);

/// What is rendered for one profile under a name of its own.
struct RotatedThumb {
  int angle = 0;  ///< Degrees clockwise: 0, 90, 180 or 270.
  std::string path;
  std::string name;
  std::string dir;
};

/// Renders one profile of `path` rotated by `angle` into `dir`/`name`. True on success; leaves no
/// markers.
[[nodiscard]] bool MakeRotatedThumbRequest(const ThumbProfile& profile, const RotatedThumb& thumb);

/// Leaves a failure marker for every profile of a phase (PHASE_ALL: of all). Returns their number.
int MarkPhaseFailed(const ThumbProfileList& profiles, int phase, const std::string& ea_dir);

}  // namespace keldo
