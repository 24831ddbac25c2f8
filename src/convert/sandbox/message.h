// Messages on standard error.
#pragma once

#include <string>
#include <string_view>

namespace keldo::convert {

/// The text on one line: control characters become "\n", "\x1b" and the like. Other bytes, those
/// that are not UTF-8 among them, stay.
[[nodiscard]] std::string OneLine(std::string_view text);

/// Writes the line "convert-thumb: <name>: <reason>" to standard error.
void PrintError(std::string_view name, std::string_view reason);

/// Writes the line "convert-thumb: <message>" to standard error.
void PrintError(std::string_view message);

/// Why the last system call failed, in words: "Permission denied".
[[nodiscard]] std::string LastErrorText();

}  // namespace keldo::convert
