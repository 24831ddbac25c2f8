// Which format a file has, told by its content.
#pragma once

#include <cstdint>

#include "convert/pixels/image.h"

namespace keldo::convert {

enum class Format : std::uint8_t { kOther, kJpeg, kBmp, kPnm, kPng, kTiff, kWebp, kGif, kHeif };

/// The format that the first bytes of a file show; names do not count. kOther for everything that
/// is not read here, an empty file included.
[[nodiscard]] Format FormatOf(Bytes file);

/// Makes the codec of a format ready, which may load a shared library; false when that is not
/// installed. To be called before the process gives up opening files.
[[nodiscard]] bool LoadCodec(Format format);

}  // namespace keldo::convert
