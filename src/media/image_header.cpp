#include "media/image_header.h"

#include <libheif/heif.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <exiv2/exiv2.hpp>
#include <memory>

#include "media/codec_library.h"
#include "media/formats.h"
#include "media/header_readers.h"
#include "util/files.h"

namespace keldo::media {
namespace {

// The functions of libheif that we use.
struct HeifFunctions {
  decltype(&::heif_context_alloc) context_alloc = nullptr;
  decltype(&::heif_context_free) context_free = nullptr;
  decltype(&::heif_context_read_from_file) read_from_file = nullptr;
  decltype(&::heif_context_get_primary_image_handle) get_primary = nullptr;
  decltype(&::heif_image_handle_release) handle_release = nullptr;
  decltype(&::heif_image_handle_get_width) get_width = nullptr;
  decltype(&::heif_image_handle_get_height) get_height = nullptr;
  bool complete = false;
};

HeifFunctions LoadHeif() {
  HeifFunctions heif;
  const CodecLibrary library("libheif.so.1");
  heif.complete = library.Find(heif.context_alloc, "heif_context_alloc") &&
                  library.Find(heif.context_free, "heif_context_free") &&
                  library.Find(heif.read_from_file, "heif_context_read_from_file") &&
                  library.Find(heif.get_primary, "heif_context_get_primary_image_handle") &&
                  library.Find(heif.handle_release, "heif_image_handle_release") &&
                  library.Find(heif.get_width, "heif_image_handle_get_width") &&
                  library.Find(heif.get_height, "heif_image_handle_get_height");
  return heif;
}

// The displayed size of the main image, rotated and cropped as the file asks. Also nothing when
// libheif is missing. It and the many libraries that it needs are loaded at the first call, not
// with the program, since most runs never meet such a file.
std::optional<RawHeader> MeasureHeif(const std::string& path) {
  static const HeifFunctions heif = LoadHeif();
  if (!heif.complete) return std::nullopt;
  const std::unique_ptr<heif_context, decltype(heif.context_free)> context(heif.context_alloc(),
                                                                           heif.context_free);
  if (!context) return std::nullopt;
  if (heif.read_from_file(context.get(), path.c_str(), nullptr).code != heif_error_Ok) {
    return std::nullopt;
  }
  heif_image_handle* raw = nullptr;
  if (heif.get_primary(context.get(), &raw).code != heif_error_Ok) return std::nullopt;
  const std::unique_ptr<heif_image_handle, decltype(heif.handle_release)> image(
      raw, heif.handle_release);
  constexpr long kUpright = 1;
  return RawHeader{heif.get_width(raw), heif.get_height(raw), kUpright};
}

long OrientationIn(const Exiv2::ExifData& exif) {
  const auto tag = exif.findKey(Exiv2::ExifKey("Exif.Image.Orientation"));
  return tag == exif.end() || tag->count() == 0 ? 0 : tag->toLong();
}

// Throws what the library throws.
RawHeader MeasureByExiv2(const std::string& path) {
  Exiv2::LogMsg::setLevel(Exiv2::LogMsg::mute);
  constexpr bool kFromTheNetwork = false;
  const auto image = Exiv2::ImageFactory::open(path, kFromTheNetwork);
  image->readMetadata();
  return {image->pixelWidth(), image->pixelHeight(), OrientationIn(image->exifData())};
}

// Enough for the brands of a HEIF file and for a pixmap's header with comments.
using Start = std::array<std::uint8_t, kDetectionBytes>;

Bytes ReadStart(int fd, Start& start) {
  ssize_t got = 0;
  do {
    got = ::pread(fd, start.data(), start.size(), 0);
  } while (got < 0 && errno == EINTR);
  return Bytes(start).first(got < 0 ? 0 : static_cast<std::size_t>(got));
}

std::optional<ImageHeader> Checked(const RawHeader& header) {
  constexpr long kLastOrientation = 8;
  if (header.width < 1 || header.width > kMaxSide || header.height < 1 ||
      header.height > kMaxSide) {
    return std::nullopt;
  }
  const bool known = header.orientation >= 1 && header.orientation <= kLastOrientation;
  return ImageHeader{.width = static_cast<int>(header.width),
                     .height = static_cast<int>(header.height),
                     .orientation = known ? static_cast<int>(header.orientation) : 0};
}

std::optional<ImageHeader> Measure(int fd) {
  // The libraries open the file again. Through the descriptor they get the file that was checked,
  // and cannot mistake a name like "http://..." for an address.
  const std::string same_file = "/proc/self/fd/" + std::to_string(fd);
  Start buffer;
  const Bytes start = ReadStart(fd, buffer);
  const Format format = DetectFormat(start);
  if (format == Format::kHeif) {
    const auto header = MeasureHeif(same_file);
    return header ? Checked(*header) : std::nullopt;
  }
  if (const HeaderReader read = HeaderReaderOf(format)) {
    if (const auto header = read({start, fd})) return Checked(*header);
  }
  return Checked(MeasureByExiv2(same_file));
}

}  // namespace

std::optional<ImageHeader> ReadImageHeader(const std::string& path) {
  const UniqueFd fd = OpenRegularFile(path.c_str());
  if (!fd.valid()) return std::nullopt;
  try {
    return Measure(fd.get());
  } catch (...) {
    // Whatever a library throws over a damaged file, derived from std::exception or not, means the
    // same: the image cannot be measured.
    return std::nullopt;
  }
}

}  // namespace keldo::media
