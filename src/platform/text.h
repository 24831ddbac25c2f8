// Text and path helpers. Paths are bytes: nothing here assumes an encoding.
#pragma once

#include <cstddef>
#include <string>

/// Removes leading and trailing white space in place. Returns `text`.
char* StringTrim(char* text);

/// Copies `in` to `out` (`out_size` bytes, always terminated) with every '%' doubled, so that a
/// converter takes it literally. A result that does not fit is cut, never between the two '%' of a
/// pair. Returns the length written.
std::size_t EscapePercentSign(const char* in, char* out, std::size_t out_size);

namespace KELDOUtils {

/// Directory part of a path: "/a/b.jpg" gives "/a", "/a" gives "/", "a" gives ".".
[[nodiscard]] std::string GetPathDirName(const std::string& path);
/// Extension without the dot: "/a/b.jpg" gives "jpg"; empty when the last component has none.
[[nodiscard]] std::string GetPathExt(const std::string& path);

}  // namespace KELDOUtils

namespace keldoindexutils {

/// Extension of a file name or path without the dot, as written: "IMG.Heic" gives "Heic". Empty for
/// a name without a dot and for one whose only dot is its first character (".jpg").
[[nodiscard]] std::string GetFileExtension(const std::string& path);
/// True when `text` begins with `prefix`.
[[nodiscard]] bool StartWith(const std::string& text, const std::string& prefix);

}  // namespace keldoindexutils
