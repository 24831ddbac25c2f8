#include "util/path.h"

#include <filesystem>
#include <system_error>

namespace keldo {
namespace {

// Appends one component to `key`. "." changes nothing, and ".." goes up.
void Descend(std::string& key, std::string_view component) {
  if (component.empty() || component == ".") return;
  if (component == "..") {
    key.resize(key.empty() ? 0 : key.rfind('/'));
  } else {
    key.append("/").append(component);
  }
}

// `key` has no slash at the end; the root is empty here.
void Walk(std::string& key, std::string_view path) {
  while (!path.empty()) {
    const std::size_t slash = path.find('/');
    Descend(key, path.substr(0, slash));
    path.remove_prefix(slash == std::string_view::npos ? path.size() : slash + 1);
  }
}

}  // namespace

std::string PathKey(std::string_view path) {
  std::string key;
  if (!path.starts_with('/')) {
    std::error_code gone;  // Without a current directory the path is taken from the root.
    Walk(key, std::filesystem::current_path(gone).native());
  }
  Walk(key, path);
  return key.empty() ? "/" : key;
}

std::string_view ParentOfKey(std::string_view key) {
  if (key.size() <= 1) return {};
  const std::size_t slash = key.rfind('/');
  return key.substr(0, slash == 0 ? 1 : slash);
}

}  // namespace keldo
