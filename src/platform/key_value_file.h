// Small text files: key/value pairs and lines.
#pragma once

#include <cstddef>

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
