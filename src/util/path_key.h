// Paths as the index knows them.
#pragma once

#include <string>
#include <string_view>

namespace keldo {

/// The one spelling under which the index keeps a path: absolute, without ".", "..", "//" or a
/// slash at the end ("/v/./photo//" is "/v/photo"). A relative path is taken from the current
/// directory. Symbolic links are not looked at: a mask set through a link holds for paths through
/// that link.
[[nodiscard]] std::string PathKey(std::string_view path);

/// The directory above: "/v/photo" gives "/v", "/v" gives "/"; empty for "/". Takes a key.
[[nodiscard]] std::string_view ParentOfKey(std::string_view key);

}  // namespace keldo
