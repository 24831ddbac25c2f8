#include "media/file_types.h"

#include <algorithm>
#include <array>
#include <string_view>

#include "util/path.h"

namespace keldo::media {
namespace {

// Every table is in lower case and sorted, which the compiler checks below.

constexpr auto kPlainPhotos = std::to_array<std::string_view>(
    {"avif",  "avifs", "bmp",  "dib", "gif", "heic", "heics", "heif",
     "heifs", "hif",   "jfif", "jp2", "jpe", "jpeg", "jpg",   "pbm",
     "pgm",   "png",   "pnm",  "ppm", "psd", "tif",  "tiff",  "webp"});

constexpr auto kRawPhotos = std::to_array<std::string_view>(
    {"3fr", "arw", "bay", "cap", "cr2", "cr3", "crw", "dcr", "dcs", "dng", "drf", "eip", "erf",
     "fff", "gpr", "iiq", "k25", "kc2", "kdc", "mdc", "mef", "mos", "mrw", "nef", "nrw", "orf",
     "ori", "pef", "ptx", "pxn", "raf", "raw", "rw2", "rwl", "rwz", "sr2", "srf", "srw", "x3f"});

// "[0]" after such a name makes the converter read the first page or frame only.
constexpr auto kMultiplePagePhotos =
    std::to_array<std::string_view>({"avif", "avifs", "gif", "heic", "heics", "heif", "heifs",
                                     "hif", "psd", "tif", "tiff", "webp"});

constexpr auto kVideos = std::to_array<std::string_view>(
    {"3g2", "3gp", "asf", "avi",  "divx", "dv",  "f4v",  "flv", "m1v", "m2t",  "m2ts", "m2v",
     "m4v", "mkv", "mod", "mov",  "mp4",  "mpe", "mpeg", "mpg", "mpv", "mts",  "mxf",  "ogm",
     "ogv", "qt",  "rm",  "rmvb", "tod",  "tp",  "trp",  "ts",  "vob", "webm", "wmv",  "xvid"});

constexpr auto kJpegs = std::to_array<std::string_view>({"jpe", "jpeg", "jpg"});

static_assert(std::ranges::is_sorted(kPlainPhotos));
static_assert(std::ranges::is_sorted(kRawPhotos));
static_assert(std::ranges::is_sorted(kMultiplePagePhotos));
static_assert(std::ranges::is_sorted(kVideos));
static_assert(std::ranges::is_sorted(kJpegs));

template <typename Table>
bool Holds(const Table& table, std::string extension) {
  // By hand, for what counts as a letter must not depend on the locale.
  std::ranges::transform(extension, extension.begin(), [](char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
  });
  const std::string_view wanted = extension;
  return std::ranges::binary_search(table, wanted);
}

}  // namespace

bool IsPhotoName(const std::string& path) {
  const std::string extension = ExtensionOf(path);
  return Holds(kPlainPhotos, extension) || Holds(kRawPhotos, extension);
}

bool IsVideoName(const std::string& path) {
  return Holds(kVideos, ExtensionOf(path));
}

bool CanHoldSeveralPages(const std::string& path) {
  return Holds(kMultiplePagePhotos, ExtensionOf(path));
}

bool IsRawExtension(const std::string& extension) {
  return Holds(kRawPhotos, extension);
}

bool IsJpegExtension(const std::string& extension) {
  return Holds(kJpegs, extension);
}

}  // namespace keldo::media
