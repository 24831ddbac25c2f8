// What a file is, recognised by the extension of its name. Case does not matter. Silent.
#pragma once

#include <string>

namespace keldoindexutils {

/// Photos that get thumbnails, camera RAW files among them (a name or path).
[[nodiscard]] bool DoesPhotoOnWebConvertFile(const std::string& path);
/// Videos that get thumbnails and films (a name or path).
[[nodiscard]] bool DoesVideoOnWebFile(const std::string& path);
/// Photos that can hold several pages or frames (a name or path).
[[nodiscard]] bool DoesMultiplePagePhotoFile(const std::string& path);
/// Camera RAW types (an extension without the dot).
[[nodiscard]] bool DoesRawImage(const std::string& extension);
/// "jpg", "jpeg" and "jpe" (an extension without the dot).
[[nodiscard]] bool DoesJpeg(const std::string& extension);

}  // namespace keldoindexutils
