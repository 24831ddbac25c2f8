// The first directory of a TIFF structure, which is also what EXIF data is.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

namespace keldo::media {

/// Read in place, without copying: every offset comes from the file and is checked where it is
/// used. Much faster than a library that also takes makers' notes apart. The bytes must outlive it.
class TiffDirectory {
 public:
  /// `tiff` begins at the byte order mark, "II*" or "MM*". What is damaged has no entries.
  explicit TiffDirectory(std::span<const std::uint8_t> tiff);

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

  std::span<const std::uint8_t> tiff_;
  bool big_endian_ = false;
  std::size_t first_entry_ = 0;
  std::size_t entries_ = 0;
};

}  // namespace keldo::media
