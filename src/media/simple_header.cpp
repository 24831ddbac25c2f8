#include "media/simple_header.h"

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <system_error>

namespace keldo::media {
namespace {

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
std::optional<std::int64_t> TakeNumber(std::string_view& text) {
  SkipFiller(text);
  std::int64_t number = 0;
  if (text.starts_with('-')) return std::nullopt;
  const auto parsed = std::from_chars(text.data(), text.data() + text.size(), number);
  if (parsed.ec != std::errc() || parsed.ptr == text.data() + text.size()) return std::nullopt;
  text.remove_prefix(static_cast<std::size_t>(parsed.ptr - text.data()));
  return number;
}

// An unsigned little-endian number of `size` bytes.
std::uint32_t NumberAt(std::string_view bytes, std::size_t offset, std::size_t size) {
  std::uint32_t number = 0;
  for (std::size_t i = size; i-- > 0;) {
    number = (number << 8U) | static_cast<unsigned char>(bytes[offset + i]);
  }
  return number;
}

}  // namespace

std::optional<ImageSize> PixmapSize(std::string_view start) {
  constexpr std::size_t kMagicSize = 2;
  if (start.size() <= kMagicSize || start[0] != 'P' || start[1] < '1' || start[1] > '6') {
    return std::nullopt;
  }
  start.remove_prefix(kMagicSize);
  if (kWhiteSpace.find(start.front()) == std::string_view::npos && start.front() != '#') {
    return std::nullopt;
  }
  const auto width = TakeNumber(start);
  const auto height = width ? TakeNumber(start) : std::nullopt;
  if (!height) return std::nullopt;
  return ImageSize{.width = *width, .height = *height};
}

std::optional<ImageSize> BitmapSize(std::string_view start) {
  constexpr std::size_t kHeaderSizeOffset = 14;
  constexpr std::size_t kSizesOffset = 18;
  constexpr std::size_t kEnd = 26;
  constexpr std::uint32_t kOs2HeaderSize = 12;
  constexpr std::uint32_t kLeastHeaderSize = 16;
  constexpr std::uint32_t kMostHeaderSize = 1024;
  if (!start.starts_with("BM") || start.size() < kEnd) return std::nullopt;
  const std::uint32_t header_size = NumberAt(start, kHeaderSizeOffset, 4);
  if (header_size == kOs2HeaderSize) {
    return ImageSize{.width = NumberAt(start, kSizesOffset, 2),
                     .height = NumberAt(start, kSizesOffset + 2, 2)};
  }
  if (header_size < kLeastHeaderSize || header_size > kMostHeaderSize) return std::nullopt;
  const auto width = static_cast<std::int32_t>(NumberAt(start, kSizesOffset, 4));
  const auto height = static_cast<std::int32_t>(NumberAt(start, kSizesOffset + 4, 4));
  return ImageSize{.width = width, .height = std::abs(std::int64_t{height})};
}

// exiv2 measures these too, but takes small ones of less than about 60 bytes for no image.
std::optional<ImageSize> GifSize(std::string_view start) {
  constexpr std::size_t kSizesOffset = 6;
  constexpr std::size_t kEnd = 10;
  if (start.size() < kEnd || !(start.starts_with("GIF87a") || start.starts_with("GIF89a"))) {
    return std::nullopt;
  }
  return ImageSize{.width = NumberAt(start, kSizesOffset, 2),
                   .height = NumberAt(start, kSizesOffset + 2, 2)};
}

}  // namespace keldo::media
