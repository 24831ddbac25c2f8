// What kind of file system a path lies on.
#pragma once

/// Type code of the file system of `path`, for the two classes below; -1 with errno set when it
/// cannot be read. `flags` is 0. The code 12 is kept for a type that looks local but is unsuitable
/// for metadata directories.
[[nodiscard]] int KELDOGetFSType(const char* path, int flags);

/// 1 for a network share or another remote mount, else 0.
[[nodiscard]] int KELDOFSIsRemoteFS(int type);

/// 1 for a mounted disk image, else 0.
[[nodiscard]] int KELDOFSIsImageFS(int type);
