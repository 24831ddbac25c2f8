#include "ctl/console.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <ostream>

#include "util/json_line.h"

namespace keldo::ctl {
namespace {

constexpr std::string_view kReplacement = "\xEF\xBF\xBD";  // U+FFFD in UTF-8.

// The length of the UTF-8 character at the start of `text`; 0 if there is none.
std::size_t CharacterLength(std::string_view text) {
  for (std::size_t length = 1; length <= 4 && length <= text.size(); ++length) {
    if (IsUtf8(text.substr(0, length))) return length;
  }
  return 0;
}

// Some terminals obey U+0080 to U+009F like the ASCII control characters.
bool IsControl(std::string_view character) {
  const auto byte = static_cast<unsigned char>(character[0]);
  if (character.size() == 1) return byte < 0x20 || byte == 0x7F;
  return byte == 0xC2 && static_cast<unsigned char>(character[1]) < 0xA0;
}

std::string Escaped(char byte) {
  if (byte == '\n') return "\\n";
  if (byte == '\t') return "\\t";
  if (byte == '\r') return "\\r";
  std::array<char, 5> text{};
  std::snprintf(text.data(), text.size(), "\\x%02x", static_cast<unsigned char>(byte));
  return text.data();
}

const char* CodeOf(Console::Colour colour) {
  switch (colour) {
    case Console::Colour::kRed:
      return "\033[31m";
    case Console::Colour::kYellow:
      return "\033[33m";
    case Console::Colour::kGreen:
      return "\033[32m";
    case Console::Colour::kBold:
      return "\033[1m";
    case Console::Colour::kDim:
      break;
  }
  return "\033[2m";
}

// Counts characters on the screen: continuation bytes and colours take no room.
std::size_t ShownWidth(std::string_view text) {
  std::size_t width = 0;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '\033') {
      i = std::min(text.find('m', i), text.size());
    } else if ((static_cast<unsigned char>(text[i]) & 0xC0U) != 0x80U) {
      ++width;
    }
  }
  return width;
}

std::vector<std::size_t> ColumnWidths(const std::vector<std::vector<std::string>>& rows) {
  std::vector<std::size_t> widths;
  for (const auto& row : rows) {
    widths.resize(std::max(widths.size(), row.size()));
    for (std::size_t i = 0; i < row.size(); ++i)
      widths[i] = std::max(widths[i], ShownWidth(row[i]));
  }
  return widths;
}

// The text as UTF-8: U+FFFD stands for each byte that does not belong.
std::string WithReplacements(std::string_view name) {
  std::string text;
  while (!name.empty()) {
    const std::size_t length = CharacterLength(name);
    text += length == 0 ? kReplacement : name.substr(0, length);
    name.remove_prefix(std::max<std::size_t>(length, 1));
  }
  return text;
}

}  // namespace

std::string Console::Coloured(Colour colour, std::string_view text) const {
  if (!style_.colour) return std::string(text);
  return CodeOf(colour) + std::string(text) + "\033[0m";
}

int Console::Fail(std::string_view path, std::string_view problem) {
  err_ << "keldothumbctl: " << ShownName(path) << ": " << problem << "\n";
  return 1;
}

void Console::Warn(std::string_view text) {
  err_ << "keldothumbctl: " << text << "\n";
}

void Console::PrintJson(const Json::Value& value) {
  out_ << JsonLine(value) << "\n";
}

int Console::Finish(int status) {
  if (out_.flush()) return status;
  return Fail("standard output", "cannot be written");
}

std::string ShownName(std::string_view name) {
  std::string shown;
  while (!name.empty()) {
    const std::size_t length = CharacterLength(name);
    const std::string_view character = name.substr(0, std::max<std::size_t>(length, 1));
    if (character == "\\") {
      shown += "\\\\";
    } else if (length == 0 || IsControl(character)) {
      for (const char byte : character)
        shown += Escaped(byte);
    } else {
      shown += character;
    }
    name.remove_prefix(character.size());
  }
  return shown;
}

Json::Value JsonPath(std::string_view path) {
  Json::Value object(Json::objectValue);
  object["path"] = WithReplacements(path);
  if (IsUtf8(path)) return object;
  std::string bytes;
  for (const char byte : path) {
    std::array<char, 3> digits{};
    std::snprintf(digits.data(), digits.size(), "%02x", static_cast<unsigned char>(byte));
    bytes += digits.data();
  }
  object["path_bytes"] = bytes;
  return object;
}

std::string Grouped(long number) {
  constexpr std::size_t kGroup = 3;
  std::string text = std::to_string(number);
  const std::size_t first = number < 0 ? 1 : 0;
  for (std::size_t at = text.size(); at > first + kGroup;) {
    at -= kGroup;
    text.insert(at, ",");
  }
  return text;
}

std::string Counted(long number, std::string_view singular) {
  return Grouped(number) + " " + std::string(singular) + (number == 1 ? "" : "s");
}

std::string SizeText(std::int64_t bytes) {
  constexpr double kStep = 1024;
  constexpr double kWholeFrom = 9.95;
  constexpr double kNextFrom = 1023.5;  // "1024" becomes "1.0" of the next unit
  constexpr std::array<const char*, 4> kUnits{"KiB", "MiB", "GiB", "TiB"};
  if (bytes < static_cast<std::int64_t>(kStep)) return Counted(bytes, "byte");
  double size = static_cast<double>(bytes) / kStep;
  std::size_t unit = 0;
  for (; size >= kNextFrom && unit + 1 < kUnits.size(); ++unit)
    size /= kStep;
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), size < kWholeFrom ? "%.1f %s" : "%.0f %s", size,
                kUnits.at(unit));
  return text.data();
}

std::string Table(const std::vector<std::vector<std::string>>& rows, std::size_t text_column) {
  const std::vector<std::size_t> widths = ColumnWidths(rows);
  std::string text;
  for (const auto& row : rows) {
    for (std::size_t i = 0; i < row.size(); ++i) {
      const bool is_last = i + 1 == row.size();
      const std::string gap(widths[i] - ShownWidth(row[i]), ' ');
      if (i == text_column) {
        text += is_last ? row[i] : row[i] + gap;
      } else {
        text += gap + row[i];
      }
      text += is_last ? "\n" : "  ";
    }
  }
  return text;
}

}  // namespace keldo::ctl
