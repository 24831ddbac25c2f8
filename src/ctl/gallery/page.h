// The gallery's page as a whole.
#pragma once

#include <string>
#include <string_view>

namespace keldo::ctl {

/// The page with a title (any text) and the JSON of its photos.
[[nodiscard]] std::string RenderPage(std::string_view title, std::string_view json);

/// True when this is the beginning of a page, of ours or of another program.
[[nodiscard]] bool LooksLikePage(std::string_view beginning);

}  // namespace keldo::ctl
