#include "ctl/gallery/page_text.h"

#include <array>
#include <cstddef>
#include <cstdio>

namespace keldo::ctl {
namespace {

// U+2028 and U+2029 in UTF-8, which JavaScript treats as line ends.
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

constexpr std::string_view kLiteral =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-._~/";

// The path with a trailing slash, so that whole names are compared: "/" stays "/".
std::string WithSlash(std::string_view directory) {
  std::string path(directory);
  if (!path.ends_with('/')) path += '/';
  return path;
}

// The length of the common part of two paths, up to and including a slash.
std::size_t CommonLength(std::string_view a, std::string_view b) {
  std::size_t common = 0;
  for (std::size_t i = 0; i < a.size() && i < b.size() && a[i] == b[i]; ++i) {
    if (a[i] == '/') common = i + 1;
  }
  return common;
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

std::string UrlPath(std::string_view path) {
  constexpr std::string_view kDigits = "0123456789ABCDEF";
  std::string url;
  url.reserve(path.size());
  for (const char character : path) {
    if (kLiteral.find(character) != std::string_view::npos) {
      url += character;
      continue;
    }
    const auto byte = static_cast<unsigned char>(character);
    url += '%';
    url += kDigits[byte >> 4U];
    url += kDigits[byte & 0xFU];
  }
  return url;
}

std::string RelativeUrl(std::string_view from, std::string_view to) {
  const std::string from_path = WithSlash(from);
  const std::string to_path = WithSlash(to);
  const std::size_t common = CommonLength(from_path, to_path);
  std::string url;
  for (std::size_t i = common; i < from_path.size(); ++i) {
    if (from_path[i] == '/') url += "../";
  }
  if (url.empty()) url = "./";
  return url + UrlPath(to_path.substr(common));
}

}  // namespace keldo::ctl
