// Which directories and files the programs work on, and what they do with directories.
#pragma once

#include <string>

namespace keldo {

/// True when the walk works on a directory of this base name and descends into it. Recycle bins,
/// snapshots, metadata directories, "._" names and application bundles ("Foo.app") are refused.
[[nodiscard]] bool IsDirNameAccepted(const std::string& name);

/// True when thumbnails may be made on the file system of `path`; network shares, disk images and
/// the unsuitable type 12 are rejected. A path whose type cannot be read is accepted (logged at
/// debug priority).
[[nodiscard]] bool IsFileSystemAccepted(const std::string& path);

/// The negation of IsFileSystemAccepted.
[[nodiscard]] bool IsFileSystemRejected(const std::string& path);

/// True for network shares and type 12 only; disk images pass. Logs like IsFileSystemAccepted.
[[nodiscard]] bool IsRemoteFileSystem(const std::string& path);

/// True when the extension of `path` is "x3f", any case.
[[nodiscard]] bool IsX3f(const std::string& path);

/// True when the extension of `path` is "heic", any case.
[[nodiscard]] bool IsHeic(const std::string& path);

/// Makes sure that `path` is a directory; a missing one is made with mode 0777 (the run's umask is
/// 0). False when its parent is missing (silent) or mkdir fails otherwise (logged).
[[nodiscard]] bool checkCreateDir(const std::string& path);

/// Unlinks every entry of `directory` whose name matches the shell pattern; all are tried. True
/// when none failed, also when nothing matched. Silent: the caller knows what the failure means.
[[nodiscard]] bool RemoveFilesByPattern(const std::string& directory, const std::string& pattern);

/// True when the volume of `directory` has at least 1 GiB (1,073,741,824 bytes) free.
[[nodiscard]] bool HasDiskSpace(const std::string& directory);

}  // namespace keldo
