// One run of the converter.
#pragma once

#include <string>
#include <vector>

#include "convert/cli/imagemagick.h"
#include "convert/sandbox/worker.h"

namespace keldo::convert {

/// Makes the thumbnails that the arguments ask for (argv[0] not among them), or has the other
/// converter make them. Returns the exit status: 0, or 1 with a line on standard error that says
/// why; the other converter's own status where that ran. "--version" alone prints VersionText().
[[nodiscard]] int ConvertMain(const std::vector<std::string>& arguments,
                              const OtherConverter& other = {});

}  // namespace keldo::convert
