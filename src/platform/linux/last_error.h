// Remembering why a platform call failed, for callers that ask afterwards.
#pragma once

namespace keldo::platform {

/// Codes that KLIBCErrGet returns; callers log them in four hexadecimal digits.
enum class ErrorCode : int {
  kNone = 0,
  kPathTooLong = 0x0100,     ///< The result does not fit the caller's buffer.
  kNoFileName = 0x0200,      ///< The path is empty or ends in '/': it names no file.
  kMissingArgument = 0x0300  ///< A null pointer where there must be text or a buffer.
};

/// Makes `code` this process's last error, reported by line `line` of `source_file`, a literal such
/// as "ea_dir.cpp".
void RecordError(ErrorCode code, const char* source_file, int line);

}  // namespace keldo::platform
