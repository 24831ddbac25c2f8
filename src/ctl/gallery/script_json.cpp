#include "ctl/gallery/script_json.h"

#include <array>
#include <cstddef>
#include <cstdio>

namespace keldo::ctl {
namespace {

// U+2028 and U+2029, line ends to JavaScript, in UTF-8.
bool IsLineSeparator(std::string_view text) {
  return text.starts_with("\xE2\x80\xA8") || text.starts_with("\xE2\x80\xA9");
}

void AppendEscaped(std::string& json, unsigned code) {
  std::array<char, 7> text{};
  std::snprintf(text.data(), text.size(), "\\u%04x", code);
  json += text.data();
}

bool NeedsEscape(char character) {
  constexpr std::string_view kSpecial = "\"\\<>&";
  return static_cast<unsigned char>(character) < 0x20 || character == 0x7F ||
         kSpecial.find(character) != std::string_view::npos;
}

}  // namespace

std::string ScriptString(std::string_view text) {
  std::string json = "\"";
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (IsLineSeparator(text.substr(i))) {
      AppendEscaped(json, text[i + 2] == '\xA8' ? 0x2028 : 0x2029);
      i += 2;
    } else if (NeedsEscape(text[i])) {
      AppendEscaped(json, static_cast<unsigned char>(text[i]));
    } else {
      json += text[i];
    }
  }
  return json + "\"";
}

std::string HtmlText(std::string_view text) {
  std::string html;
  for (const char character : text) {
    switch (character) {
      case '&':
        html += "&amp;";
        break;
      case '<':
        html += "&lt;";
        break;
      case '>':
        html += "&gt;";
        break;
      case '"':
        html += "&quot;";
        break;
      case '\'':
        html += "&#39;";
        break;
      default:
        html += character;
    }
  }
  return html;
}

}  // namespace keldo::ctl
