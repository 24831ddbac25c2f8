// HEIC, HEIF and AVIF files.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "media/simple_header.h"

namespace keldo::media {

/// True when a file with these first bytes is a still image or image sequence of the HEIF family.
[[nodiscard]] bool IsHeif(std::string_view start);

/// The displayed size of the file's main image: turned and cropped as the file asks.
///
/// libheif and the many libraries that it needs are loaded at the first call, not with the program,
/// since most runs never meet such a file. Nothing when the library is missing, too.
[[nodiscard]] std::optional<ImageSize> HeifSize(const std::string& path);

}  // namespace keldo::media
