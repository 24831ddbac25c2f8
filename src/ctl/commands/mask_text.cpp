#include "ctl/commands/mask_text.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <system_error>

#include "index/index_database.h"

namespace keldo::ctl {
namespace {

struct Kind {
  std::string_view name;
  int mask;
};

// From the smallest to the largest, which is not the order of their numbers.
constexpr auto kKinds = std::to_array<Kind>({{"S", 1 << THUMB_S},
                                             {"SM", 1 << THUMB_SM},
                                             {"M", 1 << THUMB_M},
                                             {"B", 1 << THUMB_B},
                                             {"L", 1 << THUMB_L},
                                             {"XL", 1 << THUMB_XL}});

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
  if (number < 0 || number > index::kAllKinds) return std::nullopt;
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

std::string KindName(ThumbKind kind) {
  return KindNames(1 << kind).front();
}

std::vector<std::string> KindNames(int mask) {
  std::vector<std::string> names;
  for (const Kind& kind : kKinds) {
    if ((mask & kind.mask) != 0) names.emplace_back(kind.name);
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
    const auto kind = std::ranges::find(kKinds, UpperCase(text.substr(0, comma)), &Kind::name);
    if (kind == kKinds.end()) return std::nullopt;
    mask |= kind->mask;
    if (comma == std::string_view::npos) return mask;
    text.remove_prefix(comma + 1);
  }
}

}  // namespace keldo::ctl
