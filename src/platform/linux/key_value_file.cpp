#include <algorithm>
#include <cerrno>
#include <limits>
#include <optional>
#include <string>
#include <string_view>

#include "platform/file.h"
#include "util/files.h"
#include "util/text.h"

namespace {

using keldo::HasLine;
using keldo::ReadRegularFile;
using keldo::ReplaceFile;
using keldo::TakeLine;

// Copies as much as fits. Returns the whole length, so that the caller can recognise a cut text.
int CopyOut(std::string_view text, char* out, std::size_t size) {
  if (out != nullptr && size > 0) {
    out[text.copy(out, size - 1)] = '\0';
  }
  constexpr auto kLongest = static_cast<std::size_t>(std::numeric_limits<int>::max());
  return static_cast<int>(std::min(text.size(), kLongest));
}

bool IsQuoted(std::string_view value) {
  return value.size() >= 2 && value.front() == '"' && value.back() == '"';
}

// The value when `line` is one of `key`. The key is compared byte for byte: "total" has no value in
// "total_thumb=3" or " total=3".
std::optional<std::string_view> ValueIn(std::string_view line, std::string_view key) {
  if (line.size() <= key.size() || !line.starts_with(key) || line[key.size()] != '=') {
    return std::nullopt;
  }
  const std::string_view value = line.substr(key.size() + 1);
  return IsQuoted(value) ? value.substr(1, value.size() - 2) : value;
}

// A value that has quotes itself gets a second pair, which reading strips.
std::string LineOf(std::string_view key, std::string_view value) {
  const char* quote = IsQuoted(value) ? "\"" : "";
  return std::string(key).append("=").append(quote).append(value).append(quote).append("\n");
}

// `content` with the first line of `key` replaced, or with a new one at the end.
std::string WithValue(std::string_view content, std::string_view key, std::string_view value) {
  std::string_view rest = content;
  while (!rest.empty()) {
    const auto before = static_cast<std::size_t>(rest.data() - content.data());
    if (!ValueIn(TakeLine(rest), key)) continue;
    return std::string(content.substr(0, before)).append(LineOf(key, value)).append(rest);
  }
  std::string longer(content);
  if (!longer.empty() && !longer.ends_with('\n')) longer += '\n';
  return longer.append(LineOf(key, value));
}

// A key or value that would be read back as something else.
bool CannotBeWritten(std::string_view key, std::string_view value) {
  return key.empty() || key.find_first_of("=\n") != std::string_view::npos ||
         value.find('\n') != std::string_view::npos;
}

}  // namespace

int KLIBCFileGetKeyValue(const char* path, const char* key, char* value, std::size_t size,
                         int /*flags*/) {
  CopyOut("", value, size);
  const std::optional<std::string> content = ReadRegularFile(path);
  if (!content) return -1;
  std::string_view rest = *content;
  while (!rest.empty()) {
    if (const auto found = ValueIn(TakeLine(rest), key)) return CopyOut(*found, value, size);
  }
  return 0;
}

int KLIBCFileSetKeyValue(const char* path, const char* key, const char* value, int /*flags*/) {
  if (CannotBeWritten(key, value)) {
    errno = EINVAL;
    return -1;
  }
  const std::optional<std::string> content = ReadRegularFile(path);
  // A file that is there but cannot be read must not be replaced by one that has lost its lines.
  if (!content && errno != ENOENT) return -1;
  return ReplaceFile(path, WithValue(content.value_or(""), key, value)) ? 0 : -1;
}

int KLIBCFileGetLine(const char* path, const char* key, char* line, std::size_t size,
                     int /*flags*/) {
  CopyOut("", line, size);
  const std::optional<std::string> content = ReadRegularFile(path);
  if (!content) return -1;
  // The whole length is returned for a cut line as well: callers recognise a match by it.
  return HasLine(*content, key) ? CopyOut(key, line, size) : 0;
}
