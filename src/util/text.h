// Text in memory, as bytes.
#pragma once

#include <string_view>

namespace keldo {

/// What isspace takes for white space in the C locale.
inline constexpr std::string_view kWhiteSpace = " \t\n\v\f\r";

/// `text` without white space at its ends.
[[nodiscard]] inline std::string_view Trim(std::string_view text) {
  const std::size_t first = text.find_first_not_of(kWhiteSpace);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(kWhiteSpace) + 1 - first);
}

/// Takes the first line off `text` and returns it without its newline. The last line need not have
/// one.
[[nodiscard]] inline std::string_view TakeLine(std::string_view& text) {
  const std::string_view line = text.substr(0, text.find('\n'));
  text.remove_prefix(line.size() < text.size() ? line.size() + 1 : line.size());
  return line;
}

/// True when one line of `text` equals `line`, which holds no newline itself.
[[nodiscard]] inline bool HasLine(std::string_view text, std::string_view line) {
  while (!text.empty()) {
    if (TakeLine(text) == line) return true;
  }
  return false;
}

}  // namespace keldo
