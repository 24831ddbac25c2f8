#include "media/jpeg_header.h"

#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "media/tiff_directory.h"

namespace keldo::media {
namespace {

// Marker codes of ITU-T T.81, table B.1.
constexpr unsigned char kMarkerPrefix = 0xFF;
constexpr unsigned char kStartOfImage = 0xD8;
constexpr unsigned char kEndOfImage = 0xD9;
constexpr unsigned char kStartOfScan = 0xDA;
constexpr unsigned char kApplication1 = 0xE1;
constexpr std::string_view kExifSignature("Exif\0\0", 6);
// Longer runs of segments than any real file has, and of fill bytes between them.
constexpr int kMostMarkers = 10000;

using Bytes = std::string;

// Exactly `size` bytes at `offset`; empty when the file ends before.
Bytes ReadAt(int fd, std::int64_t offset, std::size_t size) {
  Bytes bytes(size, '\0');
  ssize_t got = 0;
  do {
    got = ::pread(fd, bytes.data(), size, offset);
  } while (got < 0 && errno == EINTR);
  return got == static_cast<ssize_t>(size) ? bytes : Bytes();
}

unsigned ByteAt(const Bytes& bytes, std::size_t index) {
  return static_cast<unsigned char>(bytes[index]);
}

unsigned BigEndian16(const Bytes& bytes, std::size_t index) {
  return ByteAt(bytes, index) * 256 + ByteAt(bytes, index + 1);
}

// SOF0 to SOF15 but for the three codes in that range which mean something else.
bool IsFrameHeader(unsigned marker) {
  return marker >= 0xC0 && marker <= 0xCF && marker != 0xC4 && marker != 0xC8 && marker != 0xCC;
}

// A marker and where its segment's content lies.
struct Segment {
  unsigned marker = 0;
  std::int64_t content = 0;
  std::size_t length = 0;
};

// The segment at `offset`. One with marker 0 is a fill byte, to be skipped.
std::optional<Segment> SegmentAt(int fd, std::int64_t offset) {
  const Bytes head = ReadAt(fd, offset, 4);
  if (head.empty() || ByteAt(head, 0) != kMarkerPrefix) return std::nullopt;
  if (ByteAt(head, 1) == kMarkerPrefix) return Segment{0, offset + 1, 0};
  const unsigned length = BigEndian16(head, 2);
  if (length < 2) return std::nullopt;
  return Segment{ByteAt(head, 1), offset + 4, length - 2};
}

long OrientationOf(int fd, const Segment& segment) {
  const Bytes content = ReadAt(fd, segment.content, segment.length);
  if (!content.starts_with(kExifSignature)) return 0;
  const auto* bytes = reinterpret_cast<const std::uint8_t*>(content.data());
  const auto tiff = std::span(bytes, content.size()).subspan(kExifSignature.size());
  return static_cast<long>(TiffDirectory(tiff).Integer(TiffDirectory::kOrientation).value_or(0));
}

std::optional<ImageSize> SizeOf(int fd, const Segment& segment) {
  constexpr std::size_t kSizeBytes = 5;  // precision, height, width
  const Bytes content = ReadAt(fd, segment.content, kSizeBytes);
  if (content.empty()) return std::nullopt;
  return ImageSize{.width = BigEndian16(content, 3), .height = BigEndian16(content, 1)};
}

}  // namespace

std::optional<ExifHeader> JpegHeader(int fd) {
  const Bytes start = ReadAt(fd, 0, 2);
  if (start.empty() || ByteAt(start, 0) != kMarkerPrefix || ByteAt(start, 1) != kStartOfImage) {
    return std::nullopt;
  }
  long orientation = 0;
  std::int64_t offset = 2;
  for (int i = 0; i < kMostMarkers; ++i) {
    const std::optional<Segment> segment = SegmentAt(fd, offset);
    if (!segment || segment->marker == kStartOfScan || segment->marker == kEndOfImage) break;
    if (IsFrameHeader(segment->marker)) {
      const std::optional<ImageSize> size = SizeOf(fd, *segment);
      return size ? std::optional(ExifHeader{.size = *size, .orientation = orientation})
                  : std::nullopt;
    }
    if (segment->marker == kApplication1 && orientation == 0) {
      orientation = OrientationOf(fd, *segment);
    }
    offset = segment->content + static_cast<std::int64_t>(segment->length);
  }
  return std::nullopt;
}

}  // namespace keldo::media
