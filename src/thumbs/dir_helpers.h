// Small directory operations that the job, the requests and the RAW code share.
#pragma once

#include <string>

namespace keldo {

/// Makes sure that `path` is a directory; a missing one is made with mode 0777 (the run's umask is
/// 0). False when its parent is missing (silent) or mkdir fails otherwise (logged).
[[nodiscard]] bool checkCreateDir(const std::string& path);

/// Unlinks every entry of `directory` whose name matches the shell pattern; all are tried. True
/// when none failed, also when nothing matched. Silent: the caller knows what the failure means.
[[nodiscard]] bool RemoveFilesByPattern(const std::string& directory, const std::string& pattern);

/// True when the volume of `directory` has at least 1 GiB (1,073,741,824 bytes) free.
[[nodiscard]] bool HasDiskSpace(const std::string& directory);

}  // namespace keldo
