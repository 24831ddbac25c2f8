#include "thumbs/metadata_names.h"

#include <algorithm>

namespace keldo {
namespace {

constexpr std::size_t kRandomLength = 6;
constexpr std::string_view kTemporaryStart =
    kTemporaryTemplate.substr(0, kTemporaryTemplate.size() - kRandomLength);

bool IsAlphanumeric(char c) {
  return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}

bool IsDigit(char c) {
  return c >= '0' && c <= '9';
}

// Removes "-12" from the front: a converter numbers the pages of a file that has several.
void SkipPageNumber(std::string_view& text) {
  if (!text.starts_with('-')) return;
  const auto end = std::find_if_not(text.begin() + 1, text.end(), IsDigit);
  const auto length = static_cast<std::size_t>(end - text.begin());
  if (length > 1) text.remove_prefix(length);
}

// "KELDOPHOTO.tmp.Ab3dEf.jpg", "KELDOPHOTO.tmp.Ab3dEf-1.jpg" or, without the extension, the name
// while it is being reserved.
bool IsTemporary(std::string_view name) {
  if (!name.starts_with(kTemporaryStart)) return false;
  name.remove_prefix(kTemporaryStart.size());
  if (name.size() < kRandomLength) return false;
  const std::string_view random = name.substr(0, kRandomLength);
  if (!std::all_of(random.begin(), random.end(), IsAlphanumeric)) return false;
  name.remove_prefix(kRandomLength);
  SkipPageNumber(name);
  return name.empty() || name == ".jpg";
}

// "magick-" and 32 random characters: pixels that did not fit the converter's memory, in the
// directory that it is given for them.
bool IsPixelCache(std::string_view name) {
  constexpr std::string_view kStart = "magick-";
  constexpr std::size_t kLength = 32;
  if (!name.starts_with(kStart) || name.size() != kStart.size() + kLength) return false;
  name.remove_prefix(kStart.size());
  return std::all_of(name.begin(), name.end(),
                     [](char c) { return IsAlphanumeric(c) || c == '-' || c == '_'; });
}

bool IsIntermediate(std::string_view name) {
  if (name == kRawImageName || name == kRawPreviewName || name == kIccProfileName) return true;
  return std::ranges::any_of(std::initializer_list<int>{0, 90, 180, 270},
                             [&](int angle) { return name == RotationTrialName(angle); });
}

}  // namespace

std::string RotationTrialName(int angle) {
  return "Temp_" + std::to_string(angle) + ".jpg";
}

std::string MarkerOf(std::string_view thumbnail) {
  const std::size_t dot = thumbnail.rfind('.');
  return dot == std::string_view::npos ? "" : std::string(thumbnail.substr(0, dot)) + ".fail";
}

MetadataName WhatIs(std::string_view name) {
  if (IsTemporary(name) || IsPixelCache(name) || IsIntermediate(name)) {
    return {MetadataFile::kTemporary, 0};
  }
  for (const ThumbKindInfo& kind : kThumbKindTable) {
    for (const char* thumbnail : {kind.underscore_name, kind.colon_name}) {
      if (name == thumbnail) return {MetadataFile::kThumbnail, kind.kind};
      if (name == MarkerOf(thumbnail)) return {MetadataFile::kMarker, kind.kind};
    }
  }
  return {};
}

}  // namespace keldo
