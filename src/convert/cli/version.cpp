#include "convert/cli/version.h"

#include <array>
#include <utility>

#include "media/format.h"

namespace keldo::convert {
namespace {

constexpr std::array<std::pair<Format, const char*>, 8> kFormats{{{Format::kJpeg, "JPEG"},
                                                                  {Format::kBmp, "BMP"},
                                                                  {Format::kPnm, "PNM"},
                                                                  {Format::kPng, "PNG"},
                                                                  {Format::kTiff, "TIFF"},
                                                                  {Format::kWebp, "WEBP"},
                                                                  {Format::kGif, "GIF"},
                                                                  {Format::kHeif, "HEIC"}}};

}  // namespace

std::string VersionText() {
  std::string text = "convert-thumb " KELDO_VERSION "\nFormats:";
  for (const auto& [format, name] : kFormats) {
    if (LoadCodec(format)) text.append(" ").append(name);
  }
  return text + "\n";
}

}  // namespace keldo::convert
