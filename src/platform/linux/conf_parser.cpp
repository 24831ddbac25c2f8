#include "platform/conf_parser.h"

#include <algorithm>
#include <cstdlib>
#include <limits>
#include <map>
#include <optional>
#include <string_view>

#include "util/files.h"
#include "util/text.h"

namespace KELDOUtils {

struct ConfParser::Impl {
  std::vector<std::string> section_names;
  std::map<std::string, std::map<std::string, std::string>> sections;
};

namespace {

using keldo::kWhiteSpace;
using keldo::Trim;

// A longer line makes the file invalid; its comment does not count.
constexpr std::size_t kLongestLine = 199;

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

// "[thumb_s]" gives "thumb_s"; what follows the bracket is ignored. Nothing without a closing
// bracket.
std::optional<std::string_view> SectionIn(std::string_view line) {
  const std::size_t end = line.find(']');
  if (end == std::string_view::npos) return std::nullopt;
  return Trim(line.substr(1, end - 1));
}

struct Pair {
  std::string_view key;
  std::string_view value;
};

// In other dialects a colon before the equals sign ends the key, so the line is refused rather than
// misread.
std::optional<Pair> PairIn(std::string_view line) {
  const std::size_t separator = line.find_first_of("=:");
  if (separator == std::string_view::npos || line[separator] != '=') return std::nullopt;
  return Pair{.key = Trim(line.substr(0, separator)), .value = Trim(line.substr(separator + 1))};
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

ConfParser::ConfParser() : impl_(std::make_unique<Impl>()) {}
ConfParser::~ConfParser() = default;
ConfParser::ConfParser(ConfParser&& other) noexcept = default;
ConfParser& ConfParser::operator=(ConfParser&& other) noexcept = default;

int ConfParser::loadFromFile(const char* path) {
  const auto text = keldo::ReadRegularFile(path);
  if (!text) return 0;
  std::string_view rest = *text;
  constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
  if (rest.starts_with(kByteOrderMark)) rest.remove_prefix(kByteOrderMark.size());

  Impl content;
  std::string section;  // keys before any header belong to a section without a name
  while (!rest.empty()) {
    const std::string_view line = WithoutComment(Trim(keldo::TakeLine(rest)));
    if (line.size() > kLongestLine || line.find('\0') != std::string_view::npos) return 0;
    if (line.empty()) continue;
    if (line.starts_with('[')) {
      const auto name = SectionIn(line);
      if (!name) return 0;
      section = *name;
      if (content.sections.try_emplace(section).second) content.section_names.push_back(section);
    } else {
      const auto pair = PairIn(line);
      if (!pair) return 0;
      content.sections[section][std::string(pair->key)] = pair->value;
    }
  }
  *impl_ = std::move(content);
  return 1;
}

std::vector<std::string> ConfParser::enumSections() const {
  return impl_->section_names;
}

int ConfParser::getInt(const std::string& section, const std::string& key, int fallback) const {
  return NumberIn(getString(section, key, "")).value_or(fallback);
}

std::string ConfParser::getString(const std::string& section, const std::string& key,
                                  const std::string& fallback) const {
  const auto values = impl_->sections.find(section);
  if (values == impl_->sections.end()) return fallback;
  const auto value = values->second.find(key);
  return value == values->second.end() ? fallback : value->second;
}

}  // namespace KELDOUtils
