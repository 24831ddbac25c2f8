// Paths: joining them, taking them apart, and the one spelling the index knows.
#pragma once

#include <string>
#include <string_view>

namespace keldo {

/// Longest text, in bytes without the terminator, that the system's fixed path buffers hold.
inline constexpr std::size_t kMaxPathText = 4095;

/// `text` cut to what a path buffer holds.
[[nodiscard]] inline std::string CutToPathBuffer(std::string_view text) {
  return std::string(text.substr(0, kMaxPathText));
}

/// `directory`, "/" and `name`: "/v/photo" and "a.jpg" give "/v/photo/a.jpg". A path longer than
/// the kernel takes stays whole, so that using it fails rather than reaching another file.
[[nodiscard]] inline std::string JoinPath(std::string_view directory, std::string_view name) {
  std::string path;
  path.reserve(directory.size() + 1 + name.size());
  path.append(directory).append("/").append(name);
  return path;
}

/// The extension of a path's last component without the dot, as written: "IMG.Heic" gives "Heic".
/// Empty for a name without a dot and for a hidden file's whose only dot is its first character.
[[nodiscard]] inline std::string ExtensionOf(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  const std::size_t name = slash == std::string::npos ? 0 : slash + 1;
  const std::size_t dot = path.rfind('.');
  if (dot == std::string::npos || dot <= name) return {};
  return path.substr(dot + 1);
}

/// The one spelling under which the index keeps a path: absolute, without ".", "..", "//" or a
/// slash at the end ("/v/./photo//" is "/v/photo"). A relative path is taken from the current
/// directory. Symbolic links are not looked at: a mask set through a link holds for paths through
/// that link.
[[nodiscard]] std::string PathKey(std::string_view path);

/// The directory above: "/v/photo" gives "/v", "/v" gives "/"; empty for "/". Takes a key.
[[nodiscard]] std::string_view ParentOfKey(std::string_view key);

}  // namespace keldo
