// What is read of JPEG files and EXIF data, and what every header reader is given and returns.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

#include "util/bytes.h"

namespace keldo::media {

/// A file whose format was detected.
struct FileStart {
  Bytes bytes{};  ///< the first kDetectionBytes, or all of a shorter file
  int fd = -1;    ///< the open file, where a header can lie further on
};

/// What a header says, not checked for sense. The orientation is 0 where none is given.
struct RawHeader {
  std::int64_t width = 0;
  std::int64_t height = 0;
  long orientation = 0;
};

/// The header of a JPEG file; nothing when it is damaged or cut off.
///
/// Segments that do not matter are skipped unread: a damaged colour profile or description must not
/// keep us from measuring a photo that every decoder shows. A damaged EXIF segment counts as
/// none. Reads a few bytes per segment; moves no file position.
[[nodiscard]] std::optional<RawHeader> ReadJpegHeader(const FileStart& file);

/// The first directory of a TIFF structure, which EXIF data is too.
///
/// Read in place, without copying: every offset comes from the file and is checked where it is
/// used. Much faster than a library that also takes makers' notes apart. The bytes must outlive it.
class TiffDirectory {
 public:
  /// `tiff` starts at the byte order mark, "II*" or "MM*". A damaged one has no entries.
  explicit TiffDirectory(Bytes tiff);

  /// The value of an entry that is a single whole number of 16 or 32 bits.
  [[nodiscard]] std::optional<std::uint32_t> Integer(std::uint16_t tag) const;
  /// The value of an entry that is a single fraction; none for a denominator of 0.
  [[nodiscard]] std::optional<double> Rational(std::uint16_t tag) const;

  static constexpr std::uint16_t kOrientation = 0x112;
  static constexpr std::uint16_t kXResolution = 0x11A;
  static constexpr std::uint16_t kYResolution = 0x11B;
  static constexpr std::uint16_t kResolutionUnit = 0x128;

 private:
  [[nodiscard]] std::uint16_t Number16(std::size_t place) const;
  [[nodiscard]] std::uint32_t Number32(std::size_t place) const;
  [[nodiscard]] std::optional<std::size_t> Find(std::uint16_t tag, std::uint16_t type) const;

  Bytes tiff_;
  bool big_endian_ = false;
  std::size_t first_entry_ = 0;
  std::size_t entries_ = 0;
};

}  // namespace keldo::media
