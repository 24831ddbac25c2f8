#include "media/tiff_directory.h"

#include <algorithm>

#include "util/bytes.h"

namespace keldo::media {
namespace {

constexpr std::size_t kHeaderSize = 8;
constexpr std::size_t kEntrySize = 12;
constexpr std::size_t kValueInEntry = 8;
constexpr std::uint16_t kShort = 3;
constexpr std::uint16_t kLong = 4;
constexpr std::uint16_t kRational = 5;

}  // namespace

TiffDirectory::TiffDirectory(std::span<const std::uint8_t> tiff) : tiff_(tiff) {
  if (tiff.size() < kHeaderSize) return;
  big_endian_ = tiff[0] == 'M' && tiff[1] == 'M';
  if (!big_endian_ && (tiff[0] != 'I' || tiff[1] != 'I')) return;
  constexpr std::uint16_t kVersion = 42;
  if (Number16(2) != kVersion) return;
  const std::size_t start = Number32(4);
  if (start < kHeaderSize || start + 2 > tiff.size()) return;
  first_entry_ = start + 2;
  entries_ = std::min<std::size_t>(Number16(start), (tiff.size() - first_entry_) / kEntrySize);
}

std::optional<std::uint32_t> TiffDirectory::Integer(std::uint16_t tag) const {
  if (const auto entry = Find(tag, kShort)) return Number16(*entry + kValueInEntry);
  if (const auto entry = Find(tag, kLong)) return Number32(*entry + kValueInEntry);
  return std::nullopt;
}

std::optional<double> TiffDirectory::Rational(std::uint16_t tag) const {
  const std::optional<std::size_t> entry = Find(tag, kRational);
  if (!entry) return std::nullopt;
  const std::size_t place = Number32(*entry + kValueInEntry);
  if (place + 8 > tiff_.size()) return std::nullopt;
  const std::uint32_t denominator = Number32(place + 4);
  if (denominator == 0) return std::nullopt;
  return Number32(place) / static_cast<double>(denominator);
}

std::uint16_t TiffDirectory::Number16(std::size_t place) const {
  const std::uint8_t* bytes = tiff_.data() + place;
  return big_endian_ ? BigEndian16(bytes) : LittleEndian16(bytes);
}

std::uint32_t TiffDirectory::Number32(std::size_t place) const {
  const std::uint8_t* bytes = tiff_.data() + place;
  return big_endian_ ? BigEndian32(bytes) : LittleEndian32(bytes);
}

std::optional<std::size_t> TiffDirectory::Find(std::uint16_t tag, std::uint16_t type) const {
  for (std::size_t i = 0; i < entries_; ++i) {
    const std::size_t entry = first_entry_ + i * kEntrySize;
    if (Number16(entry) == tag && Number16(entry + 2) == type && Number32(entry + 4) == 1) {
      return entry;
    }
  }
  return std::nullopt;
}

}  // namespace keldo::media
