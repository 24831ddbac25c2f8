// The gallery's page.
#pragma once

#include <string>
#include <string_view>

namespace keldo::ctl {

// The parts of the page, compiled into the program by embed_page.cmake.
/// page.html, with "@NAME@" as a mark for each text to insert.
extern const std::string_view kPageHtml;
extern const std::string_view kPageStyle;
extern const std::string_view kPageScript;
/// The SHA-256 of the style and of the script, in base64.
extern const std::string_view kPageStyleSum;
extern const std::string_view kPageScriptSum;

/// The page with its title (any text) and the JSON of its photos.
[[nodiscard]] std::string RenderPage(std::string_view title, std::string_view json);

/// True when this is the beginning of an HTML page, ours or any other.
[[nodiscard]] bool LooksLikePage(std::string_view beginning);

}  // namespace keldo::ctl
