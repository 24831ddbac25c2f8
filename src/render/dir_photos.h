// The photos that lie directly in a directory.
#pragma once

#include <sys/stat.h>

#include <string>
#include <vector>

namespace keldo {

/// A photo and its file status.
struct DirPhoto {
  std::string name;
  struct stat status;
};

/// The photos of ListDirPhotos with their status, so that a caller who needs it looks each photo up
/// only once. Same order, same log lines. `error`, where given, becomes an errno value when the
/// list is incomplete, else 0. A file that vanished meanwhile or a dangling link is not an error.
[[nodiscard]] std::vector<DirPhoto> ListDirPhotosWithStatus(const std::string& directory,
                                                            int* error = nullptr);

/// Names of the regular files (links followed) in `directory` that get thumbnails, in ascending
/// byte order; "._" names are left out. `directory` has no trailing slash. What cannot be read is
/// logged and left out.
[[nodiscard]] std::vector<std::string> ListDirPhotos(const std::string& directory);

}  // namespace keldo
