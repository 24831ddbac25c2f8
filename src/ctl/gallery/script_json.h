// JSON that lies inside a page.
#pragma once

#include <string>
#include <string_view>

namespace keldo::ctl {

/// A text as a JSON string, with its quotes, for the inside of a <script> element: what could end
/// the element or begin a comment there ("<", ">", "&") is escaped as well. `text` is UTF-8.
[[nodiscard]] std::string ScriptString(std::string_view text);

/// A text for the inside of an element or of an attribute's value.
[[nodiscard]] std::string HtmlText(std::string_view text);

}  // namespace keldo::ctl
