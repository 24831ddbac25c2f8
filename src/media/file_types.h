// What a file is by its extension. Case does not matter.
#pragma once

#include <string>

namespace keldo::media {

/// True for photos that get thumbnails, camera RAW files among them (a name or path).
[[nodiscard]] bool IsPhotoName(const std::string& path);
/// True for videos that get thumbnails and films (a name or path).
[[nodiscard]] bool IsVideoName(const std::string& path);
/// True for photos that can hold several pages or frames (a name or path).
[[nodiscard]] bool CanHoldSeveralPages(const std::string& path);
/// True for camera RAW types (an extension without the dot).
[[nodiscard]] bool IsRawExtension(const std::string& extension);
/// True for "jpg", "jpeg" and "jpe" (an extension without the dot).
[[nodiscard]] bool IsJpegExtension(const std::string& extension);

}  // namespace keldo::media
