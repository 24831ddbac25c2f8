#include "ctl/gallery/page.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <utility>

#include "ctl/gallery/page_text.h"

namespace keldo::ctl {
namespace {

// Only our own style and script run. Images load from where the page comes from. Nothing else is
// loaded, sent or framed, and no text can become markup.
std::string Policy() {
  return "default-src 'none'; img-src 'self' file:; style-src 'sha256-" +
         std::string(kPageStyleSum) + "'; script-src 'sha256-" + std::string(kPageScriptSum) +
         "'; base-uri 'none'; form-action 'none'; require-trusted-types-for 'script'; "
         "trusted-types 'none'";
}

}  // namespace

std::string RenderPage(std::string_view title, std::string_view json) {
  const std::string title_html = HtmlText(title);
  const std::string policy = Policy();
  const std::array<std::pair<std::string_view, std::string_view>, 5> values{
      {{"@CSP@", policy},
       {"@TITLE@", title_html},
       {"@STYLE@", kPageStyle},
       {"@SCRIPT@", kPageScript},
       {"@DATA@", json}}};
  std::string page;
  page.reserve(kPageHtml.size() + kPageStyle.size() + kPageScript.size() + json.size());
  // In one pass, so that inserted text is not searched for marks.
  for (std::string_view rest = kPageHtml; !rest.empty();) {
    const auto value = std::find_if(values.begin(), values.end(), [rest](const auto& candidate) {
      return rest.starts_with(candidate.first);
    });
    if (value != values.end()) {
      page += value->second;
      rest.remove_prefix(value->first.size());
      continue;
    }
    const std::size_t plain = std::min(rest.find('@', 1), rest.size());
    page += rest.substr(0, plain);
    rest.remove_prefix(plain);
  }
  return page;
}

bool LooksLikePage(std::string_view beginning) {
  return beginning.starts_with("<!DOCTYPE html") || beginning.starts_with("<!doctype html") ||
         beginning.starts_with("<html");
}

}  // namespace keldo::ctl
