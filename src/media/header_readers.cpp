#include "media/header_readers.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <string_view>
#include <vector>

namespace keldo::media {
namespace {

// Marker codes of ITU-T T.81, table B.1.
constexpr std::uint8_t kMarkerPrefix = 0xFF;
constexpr std::uint8_t kEndOfImage = 0xD9;
constexpr std::uint8_t kStartOfScan = 0xDA;
constexpr std::uint8_t kApplication1 = 0xE1;
constexpr std::string_view kExifSignature("Exif\0\0", 6);
// Longer runs of segments than any real file has, and of fill bytes between them.
constexpr int kMostMarkers = 10000;

// Fills `to` from `offset` on; false when the file ends before.
bool ReadAt(int fd, std::int64_t offset, std::span<std::uint8_t> to) {
  ssize_t got = 0;
  do {
    got = ::pread(fd, to.data(), to.size(), offset);
  } while (got < 0 && errno == EINTR);
  return got == static_cast<ssize_t>(to.size());
}

// SOF0 to SOF15, except for three codes in that range that mean something else.
bool IsFrameHeader(std::uint8_t marker) {
  return marker >= 0xC0 && marker <= 0xCF && marker != 0xC4 && marker != 0xC8 && marker != 0xCC;
}

// A marker and where its segment's content lies.
struct Segment {
  std::uint8_t marker = 0;
  std::int64_t content = 0;
  std::size_t length = 0;
};

// The segment at `offset`. One with marker 0 is a fill byte, to be skipped.
std::optional<Segment> SegmentAt(int fd, std::int64_t offset) {
  std::array<std::uint8_t, 4> head{};
  if (!ReadAt(fd, offset, head) || head[0] != kMarkerPrefix) return std::nullopt;
  if (head[1] == kMarkerPrefix) return Segment{0, offset + 1, 0};
  const unsigned length = BigEndian16(&head[2]);
  if (length < 2) return std::nullopt;
  return Segment{head[1], offset + 4, length - 2};
}

long OrientationOf(int fd, const Segment& segment) {
  std::vector<std::uint8_t> content(segment.length);
  if (!ReadAt(fd, segment.content, content)) return 0;
  if (!StartsWith(content, kExifSignature)) return 0;
  const TiffDirectory directory(Bytes(content).subspan(kExifSignature.size()));
  return static_cast<long>(directory.Integer(TiffDirectory::kOrientation).value_or(0));
}

constexpr std::size_t kHeaderSize = 8;
constexpr std::size_t kEntrySize = 12;
constexpr std::size_t kValueInEntry = 8;
constexpr std::uint16_t kShort = 3;
constexpr std::uint16_t kLong = 4;
constexpr std::uint16_t kRational = 5;

}  // namespace

std::optional<RawHeader> ReadJpegHeader(const FileStart& file) {
  long orientation = 0;
  std::int64_t offset = 2;
  for (int i = 0; i < kMostMarkers; ++i) {
    const std::optional<Segment> segment = SegmentAt(file.fd, offset);
    if (!segment || segment->marker == kStartOfScan || segment->marker == kEndOfImage) break;
    if (IsFrameHeader(segment->marker)) {
      std::array<std::uint8_t, 5> frame{};  // precision, height, width
      if (!ReadAt(file.fd, segment->content, frame)) break;
      return RawHeader{BigEndian16(&frame[3]), BigEndian16(&frame[1]), orientation};
    }
    if (segment->marker == kApplication1 && orientation == 0) {
      orientation = OrientationOf(file.fd, *segment);
    }
    offset = segment->content + static_cast<std::int64_t>(segment->length);
  }
  return std::nullopt;
}

TiffDirectory::TiffDirectory(Bytes tiff) : tiff_(tiff) {
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
