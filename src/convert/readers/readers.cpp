#include "convert/readers/readers.h"

#include <algorithm>
#include <array>

namespace keldo::convert {
namespace {

struct Reader {
  Format format;
  const char* name;  // as --version prints it
  bool (*load)();    // null: nothing to load
  std::unique_ptr<ImageReader> (*open)(Bytes file, const ReadOptions& options);
};

constexpr std::array kReaders{
    Reader{Format::kJpeg, "JPEG", nullptr, OpenJpeg},
    Reader{Format::kBmp, "BMP", nullptr, OpenBmp},
    Reader{Format::kPnm, "PNM", nullptr, OpenPnm},
    Reader{Format::kPng, "PNG", LoadPng, OpenPng},
    Reader{Format::kTiff, "TIFF", LoadTiff, OpenTiff},
    Reader{Format::kWebp, "WEBP", LoadWebp, OpenWebp},
    Reader{Format::kGif, "GIF", LoadGif, OpenGif},
    Reader{Format::kHeif, "HEIC", LoadHeif, OpenHeif},
};

bool Load(const Reader& reader) {
  return reader.load == nullptr || reader.load();
}

}  // namespace

bool LoadCodec(Format format) {
  const auto* reader = std::ranges::find(kReaders, format, &Reader::format);
  return reader != kReaders.end() && Load(*reader);
}

std::unique_ptr<ImageReader> OpenImage(Format format, Bytes file, const ReadOptions& options) {
  const auto* reader = std::ranges::find(kReaders, format, &Reader::format);
  if (reader == kReaders.end()) {
    throw ImageError(ImageError::Kind::kUnsupported, "the file has an unknown format");
  }
  return reader->open(file, options);
}

std::string InstalledFormats() {
  std::string names;
  for (const Reader& reader : kReaders) {
    if (Load(reader)) names.append(" ").append(reader.name);
  }
  return names;
}

}  // namespace keldo::convert
