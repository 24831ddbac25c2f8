#include "util/json_line.h"

#include <json/reader.h>
#include <json/writer.h>

#include <cstdint>
#include <exception>
#include <memory>

namespace keldo {
namespace {

std::string Written(const Json::Value& value, bool bytes_as_they_are) {
  Json::StreamWriterBuilder builder;
  builder["commentStyle"] = "None";
  builder["indentation"] = "";
  builder["emitUTF8"] = bytes_as_they_are;
  return Json::writeString(builder, value);
}

// The form of a multi-byte character by its first byte.
struct Utf8Form {
  std::size_t size = 0;  // 0: no first byte
  std::uint32_t first_bits = 0;
  std::uint32_t least = 0;  // smaller numbers have a shorter form
};

Utf8Form FormOf(unsigned char first) {
  if (first < 0x80) return {.size = 1, .first_bits = first, .least = 0};
  if ((first & 0xE0U) == 0xC0) return {.size = 2, .first_bits = first & 0x1FU, .least = 0x80};
  if ((first & 0xF0U) == 0xE0) return {.size = 3, .first_bits = first & 0x0FU, .least = 0x800};
  if ((first & 0xF8U) == 0xF0) return {.size = 4, .first_bits = first & 0x07U, .least = 0x10000};
  return {};
}

// The size of the character at the start of `text`, 0 when there is none.
std::size_t CharacterSize(std::string_view text) {
  const Utf8Form form = FormOf(static_cast<unsigned char>(text.front()));
  if (form.size == 0 || form.size > text.size()) return 0;
  std::uint32_t number = form.first_bits;
  for (const char c : text.substr(1, form.size - 1)) {
    const auto byte = static_cast<unsigned char>(c);
    if ((byte & 0xC0U) != 0x80) return 0;
    number = (number << 6U) | (byte & 0x3FU);
  }
  const bool is_surrogate = number >= 0xD800 && number <= 0xDFFF;
  return number < form.least || number > 0x10FFFF || is_surrogate ? 0 : form.size;
}

}  // namespace

bool IsUtf8(std::string_view text) {
  while (!text.empty()) {
    const std::size_t size = CharacterSize(text);
    if (size == 0) return false;
    text.remove_prefix(size);
  }
  return true;
}

std::string JsonLine(const Json::Value& value) {
  const std::string plain = Written(value, true);
  return IsUtf8(plain) ? Written(value, false) : plain;
}

bool ParseJsonObject(std::string_view text, Json::Value& value) {
  value = Json::Value(Json::objectValue);
  Json::CharReaderBuilder builder;
  Json::CharReaderBuilder::strictMode(&builder.settings_);
  const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
  try {
    Json::Value parsed;
    std::string errors;
    if (!reader->parse(text.data(), text.data() + text.size(), &parsed, &errors)) return false;
    if (!parsed.isObject()) return false;
    value = std::move(parsed);
    return true;
  } catch (const std::exception&) {
    return false;  // the reader throws on a text that nests too deeply
  }
}

}  // namespace keldo
