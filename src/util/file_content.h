// Whole files in memory.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "util/unique_fd.h"

namespace keldo {

/// Opens a regular file for reading, following symbolic links. Never waits, not even for the writer
/// of a FIFO that stands where a file is expected. Invalid with errno set when there is no such
/// file; EISDIR or EINVAL when it is something else.
[[nodiscard]] UniqueFd OpenRegularFile(const char* path);

/// Appends what `fd` holds from its position on to `content`. False with errno set.
[[nodiscard]] bool ReadToEnd(int fd, std::string& content);

/// The bytes of a regular file; nothing with errno set when it cannot be read.
[[nodiscard]] std::optional<std::string> ReadRegularFile(const char* path);

/// Writes all of `content` at the position of `fd`. False with errno set; some of it may then have
/// been written.
[[nodiscard]] bool WriteAll(int fd, std::string_view content);

}  // namespace keldo
