// What an EXIF block says about how to show its image.
#pragma once

#include "convert/pixels/image.h"

namespace keldo::convert {

/// The orientation, 1 to 8, that an EXIF block names; 1 where it names none or is damaged. `exif`
/// starts at its byte order mark, "II*" or "MM*".
[[nodiscard]] int OrientationOf(Bytes exif);

/// The density of an image: what an EXIF block names replaces what the file's own header gave, each
/// value on its own.
[[nodiscard]] Density DensityWithExif(Bytes exif, const Density& header);

}  // namespace keldo::convert
