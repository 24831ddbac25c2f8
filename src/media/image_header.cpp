#include "media/image_header.h"

#include <unistd.h>

#include <array>
#include <cerrno>
#include <string_view>

#include "media/exif_header.h"
#include "media/heif_header.h"
#include "media/jpeg_header.h"
#include "media/simple_header.h"
#include "util/files.h"

namespace keldo::media {
namespace {

// Enough for the brands of a HEIF file and for a pixmap's header with a few comments.
using Start = std::array<char, 4096>;

std::string_view ReadStart(int fd, Start& start) {
  ssize_t got = 0;
  do {
    got = ::pread(fd, start.data(), start.size(), 0);
  } while (got < 0 && errno == EINTR);
  return {start.data(), got < 0 ? 0 : static_cast<std::size_t>(got)};
}

std::optional<ImageHeader> Checked(const ImageSize& size, long orientation) {
  constexpr long kLastOrientation = 8;
  if (size.width < 1 || size.width > kMaxSide || size.height < 1 || size.height > kMaxSide) {
    return std::nullopt;
  }
  const bool known = orientation >= 1 && orientation <= kLastOrientation;
  return ImageHeader{.width = static_cast<int>(size.width),
                     .height = static_cast<int>(size.height),
                     .orientation = known ? static_cast<int>(orientation) : 0};
}

std::optional<ImageHeader> Measure(int fd) {
  // The libraries open the file once more. By the descriptor they get the one that was checked, and
  // cannot take a name like "http://..." for an address.
  const std::string same_file = "/proc/self/fd/" + std::to_string(fd);
  Start buffer;
  const std::string_view start = ReadStart(fd, buffer);
  if (IsHeif(start)) {
    constexpr long kUpright = 1;
    const auto size = HeifSize(same_file);
    return size ? Checked(*size, kUpright) : std::nullopt;
  }
  for (const auto size_of : {PixmapSize, GifSize, BitmapSize}) {
    if (const auto size = size_of(start)) return Checked(*size, 0);
  }
  if (const auto jpeg = JpegHeader(fd)) return Checked(jpeg->size, jpeg->orientation);
  const ExifHeader header = ReadExifHeader(same_file);
  return Checked(header.size, header.orientation);
}

}  // namespace

std::optional<ImageHeader> ReadImageHeader(const std::string& path) {
  const UniqueFd fd = OpenRegularFile(path.c_str());
  if (!fd.valid()) return std::nullopt;
  try {
    return Measure(fd.get());
  } catch (...) {
    // Whatever a damaged file makes a library throw, and not only what derives from std::exception,
    // has one meaning: this is no image that can be measured.
    return std::nullopt;
  }
}

}  // namespace keldo::media
