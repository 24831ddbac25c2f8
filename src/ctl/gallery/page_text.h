// Text as it may stand in a page: in its script, its markup and its addresses.
#pragma once

#include <string>
#include <string_view>

namespace keldo::ctl {

/// A text as a JSON string, with its quotes, for the inside of a <script> element: what could end
/// the element or begin a comment there ("<", ">", "&") is escaped as well. `text` is UTF-8.
[[nodiscard]] std::string ScriptString(std::string_view text);

/// A text for the inside of an element or of an attribute's value.
[[nodiscard]] std::string HtmlText(std::string_view text);

/// A file name, or a path with its slashes, as part of a URL: every byte but letters, digits and
/// "-._~/" as "%" and two digits, so that names of any bytes work ("50% #1.jpg" gives
/// "50%25%20%231.jpg").
[[nodiscard]] std::string UrlPath(std::string_view path);

/// The URL, relative to a page in directory `from`, of directory `to`, with a slash at its end:
/// "/a/b" to "/a/c d" gives "../c%20d/". Never begins with something that could be taken for a
/// scheme ("./x:y/"). Both are absolute, as PathKey gives them.
[[nodiscard]] std::string RelativeUrl(std::string_view from, std::string_view to);

}  // namespace keldo::ctl
