// The INI reader of the fake platform: a plain subset, read from a real file.
#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <map>

#include "fakes/fake_platform.h"
#include "platform/conf_parser.h"
#include "util/text.h"

using keldo::Trim;
using keldo::testing::fake;

namespace KELDOUtils {

struct ConfParser::Content {
  std::vector<std::string> section_names;
  std::map<std::string, std::map<std::string, std::string>> sections;
};

ConfParser::ConfParser() : content_(std::make_unique<Content>()) {}
ConfParser::~ConfParser() = default;
ConfParser::ConfParser(ConfParser&& other) noexcept = default;
ConfParser& ConfParser::operator=(ConfParser&& other) noexcept = default;

int ConfParser::loadFromFile(const char* path) {
  if (fake().Enter("ConfParser::loadFromFile", path)) return 0;
  if (!std::filesystem::is_regular_file(fake().Real(path))) return 0;
  auto& [names, sections] = *content_;
  std::string section;
  for (const std::string& raw : fake().ReadLines(path)) {
    const std::string line(Trim(raw));
    const std::size_t equals = line.find('=');
    if (line.empty() || line.front() == ';' || line.front() == '#') continue;
    if (line.front() == '[' && line.back() == ']') {
      section = line.substr(1, line.size() - 2);
      if (std::ranges::find(names, section) == names.end()) names.push_back(section);
    } else if (equals != std::string::npos && !names.empty()) {
      sections[section][std::string(Trim(line.substr(0, equals)))] = Trim(line.substr(equals + 1));
    } else {
      return 0;
    }
  }
  return 1;
}

std::vector<std::string> ConfParser::enumSections() const {
  return content_->section_names;
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
  const auto keys = content_->sections.find(section);
  if (keys == content_->sections.end()) return fallback;
  const auto value = keys->second.find(key);
  return value == keys->second.end() ? fallback : value->second;
}

}  // namespace KELDOUtils
