// Files as a whole: read, replaced, locked. Everything here is silent.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "util/handles.h"

namespace keldo {

/// Opens a regular file for reading, following symbolic links. Never waits, not even for the writer
/// of a FIFO in the place of the file. Invalid with errno set when there is no such file; EISDIR or
/// EINVAL when it is not a regular one.
[[nodiscard]] UniqueFd OpenRegularFile(const char* path);

/// Appends everything from the position of `fd` on to `content`. False with errno set.
[[nodiscard]] bool ReadToEnd(int fd, std::string& content);

/// The bytes of a regular file; nothing with errno set when it cannot be read.
[[nodiscard]] std::optional<std::string> ReadRegularFile(const char* path);

/// Writes all of `content` at the position of `fd`. False with errno set; some of it may then have
/// been written.
[[nodiscard]] bool WriteAll(int fd, std::string_view content);

/// Makes `content` the content of `path`, mode 0644 whatever the umask, by renaming a temporary of
/// the same directory into place: readers see the old file or the new one. A symbolic link at
/// `path` is replaced itself, not what it points to. False with errno set; the old file is then
/// untouched and no temporary is left.
///
/// The content is not forced to the disk: after a power failure the old content may be back.
[[nodiscard]] bool ReplaceFile(const std::string& path, std::string_view content);

/// Opens the file at `path` by `open` and locks it with an exclusive flock(2). Starts again where
/// the file was replaced or removed during the wait for its lock: what is written to a file that is
/// no longer at its path is lost. Waits up to ten seconds and lets termination requests in; a
/// writer needs the lock only for a moment, so one that keeps it longer hangs. Invalid with errno
/// set when `open` gives nothing, or EBUSY at the end of the wait.
[[nodiscard]] UniqueFd OpenLocked(const std::string& path, const std::function<UniqueFd()>& open);

}  // namespace keldo
