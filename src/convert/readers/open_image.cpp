#include "convert/readers/open_image.h"

#include "convert/pixels/image.h"
#include "convert/readers/bmp_reader.h"
#include "convert/readers/gif_reader.h"
#include "convert/readers/heif_reader.h"
#include "convert/readers/jpeg_reader.h"
#include "convert/readers/png_reader.h"
#include "convert/readers/pnm_reader.h"
#include "convert/readers/tiff_reader.h"
#include "convert/readers/webp_reader.h"

namespace keldo::convert {

std::unique_ptr<ImageReader> OpenImage(Format format, Bytes file, const ReadOptions& options) {
  switch (format) {
    case Format::kJpeg:
      return OpenJpeg(file, options);
    case Format::kBmp:
      return OpenBmp(file, options);
    case Format::kPnm:
      return OpenPnm(file, options);
    case Format::kPng:
      return OpenPng(file, options);
    case Format::kTiff:
      return OpenTiff(file, options);
    case Format::kWebp:
      return OpenWebp(file, options);
    case Format::kGif:
      return OpenGif(file, options);
    case Format::kHeif:
      return OpenHeif(file, options);
    case Format::kOther:
      break;
  }
  throw ImageError(ImageError::Kind::kUnsupported, "the file has an unknown format");
}

}  // namespace keldo::convert
