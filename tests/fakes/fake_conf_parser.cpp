// The INI reader of the fake platform: a plain subset, read from a real file.
#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <filesystem>

#include "fakes/fake_platform.h"
#include "platform/conf_parser.h"

using keldo::testing::fake;

namespace {

std::string Trim(const std::string& text) {
  constexpr const char* kWhiteSpace = " \t\r";
  const std::size_t begin = text.find_first_not_of(kWhiteSpace);
  if (begin == std::string::npos) return "";
  return text.substr(begin, text.find_last_not_of(kWhiteSpace) - begin + 1);
}

}  // namespace

namespace KELDOUtils {

int ConfParser::loadFromFile(const char* path) {
  if (fake().Enter("ConfParser::loadFromFile", path)) return 0;
  if (!std::filesystem::is_regular_file(fake().Real(path))) return 0;
  std::string section;
  for (const std::string& raw : fake().ReadLines(path)) {
    const std::string line = Trim(raw);
    const std::size_t equals = line.find('=');
    if (line.empty() || line.front() == ';' || line.front() == '#') continue;
    if (line.front() == '[' && line.back() == ']') {
      section = line.substr(1, line.size() - 2);
      if (std::find(section_names_.begin(), section_names_.end(), section) ==
          section_names_.end()) {
        section_names_.push_back(section);
      }
    } else if (equals != std::string::npos && !section_names_.empty()) {
      sections_[section][Trim(line.substr(0, equals))] = Trim(line.substr(equals + 1));
    } else {
      return 0;
    }
  }
  return 1;
}

std::vector<std::string> ConfParser::enumSections() const {
  return section_names_;
}

int ConfParser::getInt(const std::string& section, const std::string& key, int fallback) const {
  const std::string text = getString(section, key, "");
  char* end = nullptr;
  errno = 0;
  const long value = std::strtol(text.c_str(), &end, 10);
  const bool is_number = !text.empty() && *end == '\0' && errno == 0;
  return is_number ? static_cast<int>(value) : fallback;
}

std::string ConfParser::getString(const std::string& section, const std::string& key,
                                  const std::string& fallback) const {
  const auto keys = sections_.find(section);
  if (keys == sections_.end()) return fallback;
  const auto value = keys->second.find(key);
  return value == keys->second.end() ? fallback : value->second;
}

}  // namespace KELDOUtils
