// The header of a JPEG file.
#pragma once

#include <optional>

#include "media/exif_header.h"

namespace keldo::media {

/// The size and orientation of the JPEG file open at `fd`; nothing when it is none or ends before
/// its frame header. Segments that do not matter are skipped unread: a damaged colour profile or
/// description is no reason not to measure a picture that every decoder shows. A damaged EXIF
/// segment counts as none. Reads a few bytes a segment; moves no file position.
[[nodiscard]] std::optional<ExifHeader> JpegHeader(int fd);

}  // namespace keldo::media
