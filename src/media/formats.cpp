#include "media/formats.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdlib>
#include <span>
#include <string_view>
#include <system_error>

#include "media/header_readers.h"
#include "util/path.h"
#include "util/text.h"

namespace keldo::media {
namespace {

bool IsJpeg(Bytes start) {
  return StartsWith(start, "\xFF\xD8\xFF");
}

bool IsBmp(Bytes start) {
  return StartsWith(start, "BM");
}

bool IsPnm(Bytes start) {
  return StartsWith(start, "P5") || StartsWith(start, "P6");
}

bool IsOtherPnm(Bytes start) {
  return start.size() > 1 && start[0] == 'P' && start[1] >= '1' && start[1] <= '4';
}

bool IsPng(Bytes start) {
  return StartsWith(start, "\x89PNG\r\n\x1A\n");
}

// 42 and 43 are the versions, of files with offsets of 32 and of 64 bits. A Canon RAW file starts
// with the same bytes; its first page is a preview.
bool IsTiff(Bytes start) {
  using std::string_view_literals::operator""sv;
  if (TextAt(start, 8, 2) == "CR") return false;
  return StartsWith(start, "II*\0"sv) || StartsWith(start, "MM\0*"sv) ||
         StartsWith(start, "II+\0"sv) || StartsWith(start, "MM\0+"sv);
}

bool IsWebp(Bytes start) {
  return StartsWith(start, "RIFF") && TextAt(start, 8, 4) == "WEBP";
}

bool IsGif(Bytes start) {
  return StartsWith(start, "GIF87a") || StartsWith(start, "GIF89a");
}

bool IsHeifBrand(std::string_view brand) {
  constexpr auto kBrands =
      std::to_array<std::string_view>({"avif", "avis", "heic", "heim", "heis", "heix", "hevc",
                                       "hevm", "hevs", "hevx", "mif1", "mif2", "msf1"});
  return std::ranges::find(kBrands, brand) != kBrands.end();
}

// The file starts with a box: its size, "ftyp", the main brand, a version, then the brands that the
// file is compatible with, all of four bytes. Videos start the same way.
bool IsHeif(Bytes start) {
  constexpr std::size_t kWord = 4;
  constexpr std::size_t kMainBrand = 8;
  constexpr std::size_t kFurtherBrands = 16;
  if (TextAt(start, kWord, kWord) != "ftyp") return false;
  if (IsHeifBrand(TextAt(start, kMainBrand, kWord))) return true;
  // Files name a dozen. The size can be anything, and this process is not limited yet.
  const std::size_t end =
      std::min<std::size_t>({BigEndian32(start.data()), start.size(), kDetectionBytes});
  for (std::size_t brand = kFurtherBrands; brand + kWord <= end; brand += kWord) {
    if (IsHeifBrand(TextAt(start, brand, kWord))) return true;
  }
  return false;
}

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

// Portable bitmaps, graymaps and pixmaps, plain or raw (P1 to P6):
// "P6\n# made by dcraw\n4000 3000\n255\n". Nothing for a header longer than the first bytes.
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

// Windows and OS/2 bitmaps. A negative height means that the rows are stored from the top.
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

// The size of the canvas. exiv2 measures GIF files too, but rejects those below about 60 bytes.
std::optional<RawHeader> ReadGifHeader(const FileStart& file) {
  constexpr std::size_t kSizesOffset = 6;
  constexpr std::size_t kEnd = 10;
  if (file.bytes.size() < kEnd) return std::nullopt;
  const std::uint8_t* sizes = &file.bytes[kSizesOffset];
  return RawHeader{.width = LittleEndian16(sizes), .height = LittleEndian16(sizes + 2)};
}

using Extensions = std::span<const std::string_view>;

// In lower case. JPEG 2000 and Photoshop files are rendered by ImageMagick.
constexpr auto kJpegExtensions = std::to_array<std::string_view>({"jpg", "jpeg", "jpe", "jfif"});
constexpr auto kBmpExtensions = std::to_array<std::string_view>({"bmp", "dib"});
constexpr auto kPnmExtensions = std::to_array<std::string_view>({"ppm", "pgm", "pnm"});
constexpr auto kOtherPnmExtensions = std::to_array<std::string_view>({"pbm"});
constexpr auto kPngExtensions = std::to_array<std::string_view>({"png"});
constexpr auto kTiffExtensions = std::to_array<std::string_view>({"tif", "tiff"});
constexpr auto kWebpExtensions = std::to_array<std::string_view>({"webp"});
constexpr auto kGifExtensions = std::to_array<std::string_view>({"gif"});
constexpr auto kHeifExtensions =
    std::to_array<std::string_view>({"heic", "heics", "heif", "heifs", "hif", "avif", "avifs"});
constexpr auto kJpeg2000Extensions = std::to_array<std::string_view>({"jp2"});
constexpr auto kPhotoshopExtensions = std::to_array<std::string_view>({"psd"});
constexpr auto kRawExtensions = std::to_array<std::string_view>(
    {"3fr", "arw", "bay", "cap", "cr2", "cr3", "crw", "dcr", "dcs", "dng", "drf", "eip", "erf",
     "fff", "gpr", "iiq", "k25", "kc2", "kdc", "mdc", "mef", "mos", "mrw", "nef", "nrw", "orf",
     "ori", "pef", "ptx", "pxn", "raf", "raw", "rw2", "rwl", "rwz", "sr2", "srf", "srw", "x3f"});

// Videos are recognised by extension only, and have no row below.
constexpr auto kVideoExtensions = std::to_array<std::string_view>(
    {"3g2", "3gp", "asf", "avi",  "divx", "dv",  "f4v",  "flv", "m1v", "m2t",  "m2ts", "m2v",
     "m4v", "mkv", "mod", "mov",  "mp4",  "mpe", "mpeg", "mpg", "mpv", "mts",  "mxf",  "ogm",
     "ogv", "qt",  "rm",  "rmvb", "tod",  "tp",  "trp",  "ts",  "vob", "webm", "wmv",  "xvid"});

struct FormatRow {
  Format format;
  Extensions extensions;
  bool several_pages;      // "[0]" after such a name makes ImageMagick read the first one only
  bool (*matches)(Bytes);  // null: recognised by extension only
  HeaderReader header;     // null: measured by a library
};

// The first row that matches counts.
constexpr std::array kFormats{
    FormatRow{Format::kJpeg, kJpegExtensions, false, IsJpeg, ReadJpegHeader},
    FormatRow{Format::kBmp, kBmpExtensions, false, IsBmp, ReadBmpHeader},
    FormatRow{Format::kPnm, kPnmExtensions, false, IsPnm, ReadPnmHeader},
    FormatRow{Format::kOtherPnm, kOtherPnmExtensions, false, IsOtherPnm, ReadPnmHeader},
    FormatRow{Format::kPng, kPngExtensions, false, IsPng, nullptr},
    FormatRow{Format::kTiff, kTiffExtensions, true, IsTiff, nullptr},
    FormatRow{Format::kWebp, kWebpExtensions, true, IsWebp, nullptr},
    FormatRow{Format::kGif, kGifExtensions, true, IsGif, ReadGifHeader},
    FormatRow{Format::kHeif, kHeifExtensions, true, IsHeif, nullptr},
    FormatRow{Format::kJpeg2000, kJpeg2000Extensions, false, nullptr, nullptr},
    FormatRow{Format::kPhotoshop, kPhotoshopExtensions, true, nullptr, nullptr},
    FormatRow{Format::kRaw, kRawExtensions, false, nullptr, nullptr},
};

bool Contains(Extensions extensions, std::string_view extension) {
  return std::ranges::find(extensions, extension) != extensions.end();
}

// By hand, since what counts as a letter must not depend on the locale.
std::string InLowerCase(std::string text) {
  std::ranges::transform(text, text.begin(), [](char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
  });
  return text;
}

// Null for an extension of no photo.
const FormatRow* RowOfExtension(const std::string& extension) {
  const std::string wanted = InLowerCase(extension);
  const auto* row = std::ranges::find_if(
      kFormats, [&](const FormatRow& format) { return Contains(format.extensions, wanted); });
  return row == kFormats.end() ? nullptr : row;
}

}  // namespace

Format DetectFormat(Bytes start) {
  for (const FormatRow& row : kFormats) {
    if (row.matches != nullptr && row.matches(start)) return row.format;
  }
  return Format::kUnknown;
}

HeaderReader HeaderReaderOf(Format format) {
  const auto* row = std::ranges::find(kFormats, format, &FormatRow::format);
  return row == kFormats.end() ? nullptr : row->header;
}

bool IsPhotoName(const std::string& path) {
  return RowOfExtension(ExtensionOf(path)) != nullptr;
}

bool IsVideoName(const std::string& path) {
  return Contains(kVideoExtensions, InLowerCase(ExtensionOf(path)));
}

bool CanHoldSeveralPages(const std::string& path) {
  const FormatRow* row = RowOfExtension(ExtensionOf(path));
  return row != nullptr && row->several_pages;
}

bool IsRawExtension(const std::string& extension) {
  const FormatRow* row = RowOfExtension(extension);
  return row != nullptr && row->format == Format::kRaw;
}

// The appliance counts three extensions as JPEG. A "jfif" file is a photo, but not a JPEG photo
// here.
bool IsJpegExtension(const std::string& extension) {
  const std::string wanted = InLowerCase(extension);
  return wanted != "jfif" && Contains(kJpegExtensions, wanted);
}

}  // namespace keldo::media
