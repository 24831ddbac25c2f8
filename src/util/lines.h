// Lines of a text in memory.
#pragma once

#include <string_view>

namespace keldo {

/// Takes the first line off `text` and returns it without its newline. The last line needs none.
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
