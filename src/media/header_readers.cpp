#include "media/header_readers.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <string_view>
#include <system_error>
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

constexpr std::string_view kWhiteSpace = " \t\n\v\f\r";

// Skips white space and comments, which run from '#' to the end of the line.
void SkipFiller(std::string_view& text) {
  while (!text.empty()) {
    if (text.front() == '#') {
      text.remove_prefix(std::min(text.find('\n'), text.size()));
    } else if (kWhiteSpace.find(text.front()) != std::string_view::npos) {
      text.remove_prefix(1);
    } else {
      return;
    }
  }
}

// The number that follows the filler. One that ends with the text may go on in the file.
std::optional<std::int64_t> ReadNumber(std::string_view& text) {
  SkipFiller(text);
  std::int64_t number = 0;
  if (text.starts_with('-')) return std::nullopt;
  const auto parsed = std::from_chars(text.data(), text.data() + text.size(), number);
  if (parsed.ec != std::errc() || parsed.ptr == text.data() + text.size()) return std::nullopt;
  text.remove_prefix(static_cast<std::size_t>(parsed.ptr - text.data()));
  return number;
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

std::optional<RawHeader> ReadPnmHeader(const FileStart& file) {
  constexpr std::size_t kMagicSize = 2;
  std::string_view text = TextAt(file.bytes, 0, file.bytes.size());
  if (text.size() <= kMagicSize) return std::nullopt;
  text.remove_prefix(kMagicSize);
  if (kWhiteSpace.find(text.front()) == std::string_view::npos && text.front() != '#') {
    return std::nullopt;
  }
  const auto width = ReadNumber(text);
  const auto height = width ? ReadNumber(text) : std::nullopt;
  if (!height) return std::nullopt;
  return RawHeader{.width = *width, .height = *height};
}

std::optional<RawHeader> ReadBmpHeader(const FileStart& file) {
  constexpr std::size_t kHeaderSizeOffset = 14;
  constexpr std::size_t kSizesOffset = 18;
  constexpr std::size_t kEnd = 26;
  constexpr std::uint32_t kOs2HeaderSize = 12;
  constexpr std::uint32_t kLeastHeaderSize = 16;
  constexpr std::uint32_t kMostHeaderSize = 1024;
  if (file.bytes.size() < kEnd) return std::nullopt;
  const std::uint32_t header_size = LittleEndian32(&file.bytes[kHeaderSizeOffset]);
  const std::uint8_t* sizes = &file.bytes[kSizesOffset];
  if (header_size == kOs2HeaderSize) {
    return RawHeader{.width = LittleEndian16(sizes), .height = LittleEndian16(sizes + 2)};
  }
  if (header_size < kLeastHeaderSize || header_size > kMostHeaderSize) return std::nullopt;
  const auto width = static_cast<std::int32_t>(LittleEndian32(sizes));
  const auto height = static_cast<std::int32_t>(LittleEndian32(sizes + 4));
  return RawHeader{.width = width, .height = std::abs(std::int64_t{height})};
}

std::optional<RawHeader> ReadGifHeader(const FileStart& file) {
  constexpr std::size_t kSizesOffset = 6;
  constexpr std::size_t kEnd = 10;
  if (file.bytes.size() < kEnd) return std::nullopt;
  const std::uint8_t* sizes = &file.bytes[kSizesOffset];
  return RawHeader{.width = LittleEndian16(sizes), .height = LittleEndian16(sizes + 2)};
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
