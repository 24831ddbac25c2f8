// Files that appear whole or not at all.
#pragma once

#include <string>
#include <string_view>

namespace keldo {

/// Makes `content` the content of `path`, mode 0644 whatever the umask, by renaming a temporary of
/// the same directory into place: readers see the old file or the new one. A symbolic link at
/// `path` is replaced itself, not what it points to. False with errno set; the old file is then
/// untouched and no temporary is left.
///
/// The content is not forced to the disk: after a power failure the old content may be back.
[[nodiscard]] bool ReplaceFile(const std::string& path, std::string_view content);

}  // namespace keldo
