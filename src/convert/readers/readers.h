// Reading images: one reader a format, and the table that chooses among them.
#pragma once

#include <memory>
#include <string>

#include "convert/pixels/image.h"
#include "media/formats.h"

namespace keldo::convert {

using media::Format;

/// Makes the codec of a format ready, which may load a shared library; false when that is not
/// installed or the format has no reader here. To be called before the process gives up opening
/// files.
[[nodiscard]] bool LoadCodec(Format format);

/// Reads the header of an image. `file` is the whole file and must outlive the reader; LoadCodec of
/// the format was called. Throws ImageError.
[[nodiscard]] std::unique_ptr<ImageReader> OpenImage(Format format, Bytes file,
                                                     const ReadOptions& options);

/// The names of the formats whose codecs are installed, a space before each: " JPEG BMP".
[[nodiscard]] std::string InstalledFormats();

// What the table is made of. Each Open function reads the header of one format and throws
// ImageError; each Load function loads that format's library, false when it is not installed.

/// By libjpeg-turbo, which is linked in. Rows come at a half, a quarter or an eighth of the size
/// where that still holds the first thumbnail. A file that is cut off gives gray for what is
/// missing as long as its first rows are there.
[[nodiscard]] std::unique_ptr<ImageReader> OpenJpeg(Bytes file, const ReadOptions& options);

/// Windows and OS/2 bitmaps as djpeg writes them: 24 bits, or 8 bits of gray.
[[nodiscard]] std::unique_ptr<ImageReader> OpenBmp(Bytes file, const ReadOptions& options);

/// Raw PGM and PPM files, 8 and 16 bits.
[[nodiscard]] std::unique_ptr<ImageReader> OpenPnm(Bytes file, const ReadOptions& options);

/// By libpng.
[[nodiscard]] bool LoadPng();
[[nodiscard]] std::unique_ptr<ImageReader> OpenPng(Bytes file, const ReadOptions& options);

/// The first page, by libtiff.
[[nodiscard]] bool LoadTiff();
[[nodiscard]] std::unique_ptr<ImageReader> OpenTiff(Bytes file, const ReadOptions& options);

/// Files that are not animated, by libwebp.
[[nodiscard]] bool LoadWebp();
[[nodiscard]] std::unique_ptr<ImageReader> OpenWebp(Bytes file, const ReadOptions& options);

/// The first frame, by giflib.
[[nodiscard]] bool LoadGif();
[[nodiscard]] std::unique_ptr<ImageReader> OpenGif(Bytes file, const ReadOptions& options);

/// The primary image of HEIC, HEIF and AVIF files, by libheif.
[[nodiscard]] bool LoadHeif();
[[nodiscard]] std::unique_ptr<ImageReader> OpenHeif(Bytes file, const ReadOptions& options);

}  // namespace keldo::convert
