#include "platform/file_types.h"

#include "media/formats.h"

namespace keldoindexutils {

bool DoesPhotoOnWebConvertFile(const std::string& path) {
  return keldo::media::IsPhotoName(path);
}

bool DoesVideoOnWebFile(const std::string& path) {
  return keldo::media::IsVideoName(path);
}

bool DoesMultiplePagePhotoFile(const std::string& path) {
  return keldo::media::CanHoldSeveralPages(path);
}

bool DoesRawImage(const std::string& extension) {
  return keldo::media::IsRawExtension(extension);
}

bool DoesJpeg(const std::string& extension) {
  return keldo::media::IsJpegExtension(extension);
}

}  // namespace keldoindexutils
