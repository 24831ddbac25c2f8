// Which format a file has, by its content and by the extension of its name.
//
// The two answers serve different ends. The extension decides what a photo is and how it is
// requested, before any file is opened; the content decides how a file is read, since names lie.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "util/bytes.h"

namespace keldo::media {

enum class Format : std::uint8_t {
  kUnknown,
  kJpeg,
  kBmp,
  kPnm,  ///< raw portable graymaps and pixmaps
  kPng,
  kTiff,
  kWebp,
  kGif,
  kHeif,       ///< HEIC, HEIF and AVIF
  kOtherPnm,   ///< portable bitmaps, and graymaps and pixmaps in plain text
  kJpeg2000,   ///< by extension only
  kPhotoshop,  ///< by extension only
  kRaw,        ///< by extension only; camera RAW files
};

/// Detection looks at no more than this many bytes of a file.
inline constexpr std::size_t kDetectionBytes = 4096;

/// The format that the first bytes of a file show. kUnknown for an empty file and for formats that
/// are recognised by extension only.
[[nodiscard]] Format DetectFormat(Bytes start);

struct FileStart;
struct RawHeader;

/// Reads the size and orientation from the header of one format; nothing when it is damaged.
using HeaderReader = std::optional<RawHeader> (*)(const FileStart& file);

/// Our own header reader of a format; null for formats that only a library can measure.
[[nodiscard]] HeaderReader HeaderReaderOf(Format format);

// By extension, whose case does not matter.

/// True for photos that get thumbnails, camera RAW files among them (a name or path).
[[nodiscard]] bool IsPhotoName(const std::string& path);
/// True for videos that get thumbnails and films (a name or path).
[[nodiscard]] bool IsVideoName(const std::string& path);
/// True for photos that can hold several pages or frames (a name or path).
[[nodiscard]] bool CanHoldSeveralPages(const std::string& path);
/// True for camera RAW types (an extension without the dot).
[[nodiscard]] bool IsRawExtension(const std::string& extension);
/// True for "jpg", "jpeg" and "jpe" (an extension without the dot).
[[nodiscard]] bool IsJpegExtension(const std::string& extension);

}  // namespace keldo::media
