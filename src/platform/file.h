// Files: status records, times, free space and existence.
#pragma once

#include <sys/stat.h>

#include <array>
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

/// Returns the bytes that the caller may still write on the volume of `path`; 0 when that cannot be
/// found out.
[[nodiscard]] std::uint64_t KLIBGetFsAvailSize(const char* path);

namespace keldoindexutils::stat {

/// True for any existing file system entry that stat reaches.
[[nodiscard]] bool DoesFileExist(const std::string& path);
/// True for an existing directory.
[[nodiscard]] bool DoesDirExist(const std::string& path);
/// True for an existing file of at least one byte.
[[nodiscard]] bool DoesFileExistAndHasSize(const std::string& path);

}  // namespace keldoindexutils::stat
