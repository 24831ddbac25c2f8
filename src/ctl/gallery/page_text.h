// Escaping text for a page: for its script, its markup and its addresses.
#pragma once

#include <string>
#include <string_view>

namespace keldo::ctl {

/// `text`, which is UTF-8, as a JSON string with its quotes, for use inside a <script> element:
/// characters that could end the element or begin a comment ("<", ">", "&") are escaped, too.
[[nodiscard]] std::string ScriptString(std::string_view text);

/// `text` for use inside an element or an attribute's value.
[[nodiscard]] std::string HtmlText(std::string_view text);

/// A file name, or a path with its slashes, as part of a URL: every byte except letters, digits and
/// "-._~/" becomes "%" and two digits, so that any name works ("50% #1.jpg" gives
/// "50%25%20%231.jpg").
[[nodiscard]] std::string UrlPath(std::string_view path);

/// The URL of directory `to`, relative to a page in directory `from`, with a trailing slash: "/a/b"
/// to "/a/c d" gives "../c%20d/". It never begins with what could be mistaken for a scheme
/// ("./x:y/"). Both paths are as PathKey returns them.
[[nodiscard]] std::string RelativeUrl(std::string_view from, std::string_view to);

}  // namespace keldo::ctl
