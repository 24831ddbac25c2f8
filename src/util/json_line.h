// JSON as the indexer's programs exchange it: one text, one line.
#pragma once

#include <json/value.h>

#include <string>
#include <string_view>

namespace keldo {

/// The value as compact JSON without a newline.
///
/// What is not ASCII is escaped. When a string is not UTF-8 (a path may be any bytes) that is
/// impossible without changing it, so then all strings are written as they are.
[[nodiscard]] std::string JsonLine(const Json::Value& value);

/// Reads `text` into `value`. False, with an empty object in `value`, unless it is exactly one JSON
/// object with white space around it at most. Nothing is thrown, however deep it nests.
[[nodiscard]] bool ParseJsonObject(std::string_view text, Json::Value& value);

/// True when `text` is UTF-8 without overlong forms, surrogates or numbers beyond Unicode.
[[nodiscard]] bool IsUtf8(std::string_view text);

}  // namespace keldo
