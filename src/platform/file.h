// Files: status records, times, existence, free space and the kind of file system, and small text
// files of key/value pairs and lines.
#pragma once

#include <sys/stat.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

/// A file's status: the standard fields, then two words that belong to the platform.
struct KLIBCFileRecord {
  struct stat st;
  std::array<long, 2> platform_words;
};

/// Fills `record` for `path`, following symbolic links. `flags` is 9 for "standard fields and
/// platform words". Returns 0 on success, -1 with errno set. Silent.
int KLIBCFileStat(const char* path, int flags, KLIBCFileRecord* record);

/// Sets file times from `times`: access, modification, and a third pair that belongs to the
/// platform. `mode` 3 sets access and modification time. Returns 0 on success, -1 with errno set.
int KLIBCFileUTime(const char* path, int mode, const std::array<timespec, 3>& times);

/// Returns the bytes that the caller may still write on the volume of `path`; 0 when that is
/// unknown.
[[nodiscard]] std::uint64_t KLIBGetFsAvailSize(const char* path);

/// Type code of the file system of `path`, for the two classes below; -1 with errno set when it
/// cannot be read. `flags` is 0. The code 12 is kept for a type that looks local but is unsuitable
/// for metadata directories.
[[nodiscard]] int KELDOGetFSType(const char* path, int flags);

/// 1 for a network share or another remote mount, else 0.
[[nodiscard]] int KELDOFSIsRemoteFS(int type);

/// 1 for a mounted disk image, else 0.
[[nodiscard]] int KELDOFSIsImageFS(int type);

/// Reads the value of `key` from the `key="value"` or `key=value` lines of `path` into `value`
/// (`size` bytes, always terminated, cut when longer). `flags` is 0. Returns the length of the
/// value, 0 when it is empty or absent, -1 when the file cannot be read. Silent.
int KLIBCFileGetKeyValue(const char* path, const char* key, char* value, std::size_t size,
                         int flags);

/// Sets `key` to `value` as a `key=value` line; a new key goes at the end, other lines stay as they
/// are. The file is replaced atomically with mode 0644, so that a reader never sees half of it.
/// `flags` is 0. Returns 0 on success, negative with errno set.
int KLIBCFileSetKeyValue(const char* path, const char* key, const char* value, int flags);

/// Finds the first line of `path` that equals `key` and copies it into `line` (`size` bytes, always
/// terminated, cut when longer). `flags` is 1028. Returns the length of the line (positive), 0 when
/// there is none, -1 when the file cannot be read. Silent.
int KLIBCFileGetLine(const char* path, const char* key, char* line, std::size_t size, int flags);

namespace keldoindexutils::stat {

/// True for any existing file system entry that stat reaches.
[[nodiscard]] bool DoesFileExist(const std::string& path);
/// True for an existing directory.
[[nodiscard]] bool DoesDirExist(const std::string& path);
/// True for an existing file of at least one byte.
[[nodiscard]] bool DoesFileExistAndHasSize(const std::string& path);

}  // namespace keldoindexutils::stat
