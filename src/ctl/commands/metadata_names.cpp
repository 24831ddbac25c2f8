#include "ctl/commands/metadata_names.h"

#include <algorithm>
#include <array>
#include <string>

#include "thumbs/keldomk_util.h"

namespace keldo::ctl {
namespace {

constexpr std::string_view kTemporaryStart = "KELDOPHOTO.tmp.";
constexpr std::size_t kRandomLength = 6;

// The decoded picture and the preview of a RAW photo, the colour profile that goes with a
// prescaled JPEG, and the renderings by which a photo's rotation is found.
constexpr std::array<std::string_view, 7> kIntermediates{"KELDOPHOTO_RAW_TEMP.ppm",
                                                         "KELDOPHOTO_THUMB_RAW.jpg",
                                                         "KELDOPHOTO_PROFILE.icc",
                                                         "Temp_0.jpg",
                                                         "Temp_90.jpg",
                                                         "Temp_180.jpg",
                                                         "Temp_270.jpg"};

bool IsAlphanumeric(char c) {
  return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}

bool IsDigit(char c) {
  return c >= '0' && c <= '9';
}

// Takes "-12" off the front: a converter numbers the pages where it was given several.
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

}  // namespace

MetadataName WhatIs(std::string_view name) {
  if (IsTemporary(name) || IsPixelCache(name)) return {MetadataFile::kTemporary, 0};
  if (std::find(kIntermediates.begin(), kIntermediates.end(), name) != kIntermediates.end()) {
    return {MetadataFile::kTemporary, 0};
  }
  for (const ThumbKindInfo& kind : kThumbKindTable) {
    for (const std::string_view thumbnail : {kind.underscore_name, kind.colon_name}) {
      if (name == thumbnail) return {MetadataFile::kThumbnail, kind.kind};
      const std::string_view stem = thumbnail.substr(0, thumbnail.rfind('.'));
      if (name.starts_with(stem) && name.substr(stem.size()) == ".fail") {
        return {MetadataFile::kMarker, kind.kind};
      }
    }
  }
  return {};
}

}  // namespace keldo::ctl
