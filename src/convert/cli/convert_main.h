// One run of the converter.
#pragma once

#include <string>
#include <vector>

#include "convert/cli/imagemagick.h"

namespace keldo::convert {

/// Makes the thumbnails that the arguments ask for (argv[0] not among them), or has ImageMagick
/// make them. Returns the exit status: 0, or 1 with a line on standard error that says why;
/// ImageMagick's own status where that ran. "--version" alone prints the version and, by loading
/// every codec, the formats that can be read on this machine: "Formats: JPEG BMP ...".
[[nodiscard]] int ConvertMain(const std::vector<std::string>& arguments,
                              const ImageMagick& magick = {});

}  // namespace keldo::convert
