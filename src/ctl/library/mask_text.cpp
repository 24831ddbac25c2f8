#include "ctl/library/mask_text.h"

#include <algorithm>
#include <charconv>
#include <system_error>

namespace keldo::ctl {
namespace {

std::optional<int> ParseNumber(std::string_view text) {
  int base = 10;
  if (text.starts_with("0x") || text.starts_with("0X")) {
    text.remove_prefix(2);
    base = 16;
  }
  int number = 0;
  const char* end = text.data() + text.size();
  const auto parsed = std::from_chars(text.data(), end, number, base);
  if (parsed.ec != std::errc() || parsed.ptr != end) return std::nullopt;
  if (number < 0 || number > kAllKinds) return std::nullopt;
  return number;
}

std::string UpperCase(std::string_view text) {
  std::string upper(text);
  std::ranges::transform(upper, upper.begin(), [](char c) {
    return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
  });
  return upper;
}

}  // namespace

std::vector<std::string> KindNames(int mask) {
  std::vector<std::string> names;
  for (const ThumbKindInfo& kind : kKindsBySize) {
    if (Wants(mask, kind.kind)) names.emplace_back(kind.short_name);
  }
  return names;
}

std::string KindsText(int mask) {
  std::string text;
  for (const std::string& name : KindNames(mask))
    text.append(text.empty() ? "" : ", ").append(name);
  return text.empty() ? "no thumbnails" : text;
}

std::optional<int> ParseMask(std::string_view text) {
  if (const auto number = ParseNumber(text)) return number;
  int mask = 0;
  while (true) {
    const std::size_t comma = text.find(',');
    const std::string name = UpperCase(text.substr(0, comma));
    const auto* const kind = std::ranges::find(kThumbKindTable, name, &ThumbKindInfo::short_name);
    if (kind == kThumbKindTable.end()) return std::nullopt;
    mask |= 1 << kind->kind;
    if (comma == std::string_view::npos) return mask;
    text.remove_prefix(comma + 1);
  }
}

}  // namespace keldo::ctl
