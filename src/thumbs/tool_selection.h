// Which external programs do the work, and whether the machine is short of memory. Decided anew
// at each call: the codec package can come and go while an indexer runs.
#pragma once

#include <string>

namespace keldo {

/// True when the codec add-on package is installed (its marker file exists).
[[nodiscard]] bool HasCodecPackage();

/// Path of the image converter: the codec package's when it is installed, else the system's. With
/// the package, KELDO_CODEC_PKG_NAME is set to "zun" in our environment first, since its tools
/// expect to inherit that. Whether the program exists is left to whoever starts it.
[[nodiscard]] std::string ConverterPath();

/// Path of the video transcoder, by the same rule.
[[nodiscard]] std::string TranscoderPath();

/// True when the machine has less than 512 MiB of memory, or its size is unknown.
[[nodiscard]] bool IsLowMemory();

}  // namespace keldo
