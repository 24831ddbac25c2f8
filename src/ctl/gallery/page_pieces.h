// The files of the gallery's page, compiled into the program.
#pragma once

#include <string_view>

namespace keldo::ctl {

/// page.html, with "@NAME@" where something is to be put in.
extern const std::string_view kPageHtml;
extern const std::string_view kPageStyle;
extern const std::string_view kPageScript;
/// The SHA-256 of the style and of the script, in base64.
extern const std::string_view kPageStyleSum;
extern const std::string_view kPageScriptSum;

}  // namespace keldo::ctl
