// Which directories and files the program works on.
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

/// True for a path inside the users' home share: "/volume1/homes" and what lies below.
[[nodiscard]] bool IsHomeSharePath(const std::string& path);

/// True when the extension of `path` is "x3f", any case.
[[nodiscard]] bool IsX3f(const std::string& path);

/// True when the extension of `path` is "heic", any case.
[[nodiscard]] bool IsHeic(const std::string& path);

}  // namespace keldo
