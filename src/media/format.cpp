#include "media/format.h"

#include <algorithm>
#include <array>
#include <string_view>

#include "convert/readers/gif_reader.h"
#include "convert/readers/heif_reader.h"
#include "convert/readers/png_reader.h"
#include "convert/readers/tiff_reader.h"
#include "convert/readers/webp_reader.h"
#include "util/bytes.h"

namespace keldo::convert {
namespace {

constexpr auto kHeifBrands =
    std::to_array<std::string_view>({"avif", "avis", "heic", "heim", "heis", "heix", "hevc", "hevm",
                                     "hevs", "hevx", "mif1", "mif2", "msf1"});

std::string_view Text(Bytes file, std::size_t offset, std::size_t length) {
  if (file.size() < offset + length) return {};
  return {reinterpret_cast<const char*>(file.data() + offset), length};
}

bool StartsWith(Bytes file, std::string_view magic) {
  return Text(file, 0, magic.size()) == magic;
}

bool IsHeifBrand(std::string_view brand) {
  return std::ranges::find(kHeifBrands, brand) != kHeifBrands.end();
}

// The file begins with a box: its size, "ftyp", the main brand, a version, then further brands that
// it is readable as, all of four bytes. Films begin the same way.
bool IsHeif(Bytes file) {
  constexpr std::size_t kWord = 4;
  constexpr std::size_t kMainBrand = 8;
  constexpr std::size_t kFurtherBrands = 16;
  if (Text(file, kWord, kWord) != "ftyp") return false;
  if (IsHeifBrand(Text(file, kMainBrand, kWord))) return true;
  // Files name a dozen. The size can be anything, and this is not yet the process with limits.
  constexpr std::size_t kMostBytes = 4096;
  const std::size_t end =
      std::min<std::size_t>({BigEndian32(file.data()), file.size(), kMostBytes});
  for (std::size_t brand = kFurtherBrands; brand + kWord <= end; brand += kWord) {
    if (IsHeifBrand(Text(file, brand, kWord))) return true;
  }
  return false;
}

// 42 and 43 are the versions, of files with offsets of 32 and of 64 bits. A Canon RAW file is a
// TIFF file by these bytes; its first page is a preview.
bool IsTiff(Bytes file) {
  using std::string_view_literals::operator""sv;
  if (Text(file, 8, 2) == "CR") return false;
  return StartsWith(file, "II*\0"sv) || StartsWith(file, "MM\0*"sv) ||
         StartsWith(file, "II+\0"sv) || StartsWith(file, "MM\0+"sv);
}

bool IsWebp(Bytes file) {
  return StartsWith(file, "RIFF") && Text(file, 8, 4) == "WEBP";
}

}  // namespace

Format FormatOf(Bytes file) {
  if (StartsWith(file, "\xFF\xD8\xFF")) return Format::kJpeg;
  if (StartsWith(file, "BM")) return Format::kBmp;
  if (StartsWith(file, "P5") || StartsWith(file, "P6")) return Format::kPnm;
  if (StartsWith(file, "\x89PNG\r\n\x1A\n")) return Format::kPng;
  if (IsTiff(file)) return Format::kTiff;
  if (IsWebp(file)) return Format::kWebp;
  if (StartsWith(file, "GIF87a") || StartsWith(file, "GIF89a")) return Format::kGif;
  if (IsHeif(file)) return Format::kHeif;
  return Format::kOther;
}

bool LoadCodec(Format format) {
  switch (format) {
    case Format::kJpeg:  // linked in
    case Format::kBmp:
    case Format::kPnm:
      return true;
    case Format::kPng:
      return LoadPng();
    case Format::kTiff:
      return LoadTiff();
    case Format::kWebp:
      return LoadWebp();
    case Format::kGif:
      return LoadGif();
    case Format::kHeif:
      return LoadHeif();
    case Format::kOther:
      break;
  }
  return false;
}

}  // namespace keldo::convert
