// INI files.
#pragma once

#include <memory>
#include <string>
#include <vector>

namespace KELDOUtils {

/// Reads one INI file: `[section]` headers and `key=value` lines, `;` and `#` comments, white space
/// around names and values ignored. A key that a section gives twice has its last value.
class ConfParser {
 public:
  ConfParser();
  ~ConfParser();
  ConfParser(ConfParser&& other) noexcept;
  ConfParser& operator=(ConfParser&& other) noexcept;
  ConfParser(const ConfParser&) = delete;
  ConfParser& operator=(const ConfParser&) = delete;

  /// Returns non-zero when the file was read and parsed; 0 when it cannot be read, is not a
  /// regular file or has a line of another form. Silent. Only one load per object.
  int loadFromFile(const char* path);

  /// The section names in file order, each once.
  [[nodiscard]] std::vector<std::string> enumSections() const;

  /// The key's value as a decimal integer; `fallback` when absent or not a number.
  [[nodiscard]] int getInt(const std::string& section, const std::string& key, int fallback) const;

  /// The key's value; `fallback` when absent.
  [[nodiscard]] std::string getString(const std::string& section, const std::string& key,
                                      const std::string& fallback) const;

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace KELDOUtils
