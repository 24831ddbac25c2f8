#include "platform/conf_parser.h"

#include <ini.h>

#include <algorithm>
#include <cstdlib>
#include <limits>
#include <optional>
#include <string_view>

#include "util/files.h"
#include "util/lines.h"

namespace KELDOUtils {
namespace {

using Values = std::map<std::string, std::string>;

constexpr std::string_view kWhiteSpace = " \t\n\v\f\r";

// Feeds the library line by line and gathers what it finds.
//
// The library tells of no section without keys, cuts section names and lines at a fixed length, and
// takes an indented line for the rest of the value before. So the lines are prepared here, and the
// current section is kept here too.
struct Source {
  std::string_view rest;
  std::string section;
  std::vector<std::string> section_names;
  std::map<std::string, Values> sections;
  bool failed = false;
};

std::string_view Trim(std::string_view text) {
  const std::size_t first = text.find_first_not_of(kWhiteSpace);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(kWhiteSpace) + 1 - first);
}

// The line without a comment, which begins with ';' after white space, or with ';' or '#' at the
// start of the line.
std::string_view WithoutComment(std::string_view line) {
  if (line.starts_with(';') || line.starts_with('#')) return {};
  for (std::size_t i = 1; i < line.size(); ++i) {
    if (line[i] == ';' && kWhiteSpace.find(line[i - 1]) != std::string_view::npos) {
      return Trim(line.substr(0, i));
    }
  }
  return line;
}

void EnterSection(Source& source, std::string_view line) {
  const std::size_t end = line.find(']');
  if (end == std::string_view::npos) return;  // the library fails on it
  source.section = Trim(line.substr(1, end - 1));
  if (source.sections.try_emplace(source.section).second) {
    source.section_names.push_back(source.section);
  }
}

// The library would take ':' for the equals sign, and '\0' for the end of the line.
bool IsUnderstood(std::string_view line) {
  if (line.find('\0') != std::string_view::npos) return false;
  if (line.empty() || line.starts_with('[')) return true;
  const std::size_t separator = line.find_first_of("=:");
  return separator != std::string_view::npos && line[separator] == '=';
}

// The library's fgets: the next line in `buffer`, null after the last.
char* NextLine(char* buffer, int size, void* stream) {
  Source& source = *static_cast<Source*>(stream);
  if (source.rest.empty() || source.failed) return nullptr;
  const std::string_view line = WithoutComment(Trim(keldo::TakeLine(source.rest)));
  // A line that the buffer cannot take would be cut, and the rest read as another line.
  if (line.size() >= static_cast<std::size_t>(size) || !IsUnderstood(line)) {
    source.failed = true;
    return nullptr;
  }
  if (line.starts_with('[')) EnterSection(source, line);
  line.copy(buffer, line.size());
  buffer[line.size()] = '\0';
  return buffer;
}

int TakeValue(void* user, const char* /*section*/, const char* name, const char* value) {
  Source& source = *static_cast<Source*>(user);
  source.sections[source.section][name] = value;
  return 1;
}

// A whole decimal number, held within the range of int.
std::optional<int> NumberIn(const std::string& text) {
  const std::string trimmed(Trim(text));
  char* end = nullptr;
  const long value = std::strtol(trimmed.c_str(), &end, 10);  // clamps to long itself
  if (trimmed.empty() || *end != '\0') return std::nullopt;
  constexpr long kLeast = std::numeric_limits<int>::min();
  constexpr long kMost = std::numeric_limits<int>::max();
  return static_cast<int>(std::clamp(value, kLeast, kMost));
}

}  // namespace

int ConfParser::loadFromFile(const char* path) {
  const auto content = keldo::ReadRegularFile(path);
  if (!content) return 0;
  Source source;
  source.rest = *content;
  constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
  if (source.rest.starts_with(kByteOrderMark)) source.rest.remove_prefix(kByteOrderMark.size());
  if (ini_parse_stream(NextLine, &source, TakeValue, &source) != 0 || source.failed) return 0;
  section_names_ = std::move(source.section_names);
  sections_ = std::move(source.sections);
  return 1;
}

std::vector<std::string> ConfParser::enumSections() const {
  return section_names_;
}

int ConfParser::getInt(const std::string& section, const std::string& key, int fallback) const {
  return NumberIn(getString(section, key, "")).value_or(fallback);
}

std::string ConfParser::getString(const std::string& section, const std::string& key,
                                  const std::string& fallback) const {
  const auto values = sections_.find(section);
  if (values == sections_.end()) return fallback;
  const auto value = values->second.find(key);
  return value == values->second.end() ? fallback : value->second;
}

}  // namespace KELDOUtils
