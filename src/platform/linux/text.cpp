#include "platform/text.h"

#include <cstring>
#include <string_view>

#include "util/path.h"
#include "util/text.h"

char* StringTrim(char* text) {
  if (text == nullptr) return nullptr;
  const std::string_view trimmed = keldo::Trim(text);
  if (!trimmed.empty()) std::memmove(text, trimmed.data(), trimmed.size());
  text[trimmed.size()] = '\0';
  return text;
}

std::size_t EscapePercentSign(const char* in, char* out, std::size_t out_size) {
  if (out_size == 0) return 0;
  std::size_t length = 0;
  for (; *in != '\0'; ++in) {
    const std::size_t needed = *in == '%' ? 2 : 1;
    if (length + needed >= out_size) break;
    out[length++] = *in;
    if (*in == '%') out[length++] = '%';
  }
  out[length] = '\0';
  return length;
}

namespace KELDOUtils {

std::string GetPathDirName(const std::string& path) {
  // As dirname does: slashes at the end belong to the last component, several in a row count as
  // one.
  const std::size_t name_end = path.find_last_not_of('/');
  if (name_end == std::string::npos) return path.empty() ? "." : "/";
  const std::size_t slash = path.rfind('/', name_end);
  if (slash == std::string::npos) return ".";
  const std::size_t directory_end = path.find_last_not_of('/', slash);
  return directory_end == std::string::npos ? "/" : path.substr(0, directory_end + 1);
}

std::string GetPathExt(const std::string& path) {
  return keldo::ExtensionOf(path);
}

}  // namespace KELDOUtils

namespace keldoindexutils {

std::string GetFileExtension(const std::string& path) {
  return keldo::ExtensionOf(path);
}

bool StartWith(const std::string& text, const std::string& prefix) {
  return text.starts_with(prefix);
}

}  // namespace keldoindexutils
