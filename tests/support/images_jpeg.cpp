#include <csetjmp>
#include <cstddef>
#include <cstdio>
// jpeglib.h needs the two above.
#include <jpeglib.h>

#include <cstdlib>
#include <stdexcept>

#include "support/images.h"

namespace keldo::testing {
namespace {

// libjpeg reports errors through a function that must not return. Warnings, such as that of a
// truncated file, count as errors here.
struct ErrorManager {
  jpeg_error_mgr base;
  std::jmp_buf escape;
};

[[noreturn]] void Escape(j_common_ptr info) {
  std::longjmp(reinterpret_cast<ErrorManager*>(info->err)->escape, 1);
}

void EscapeFromWarning(j_common_ptr info, int level) {
  if (level < 0) Escape(info);
}

jpeg_error_mgr* UseErrorManager(ErrorManager& errors) {
  jpeg_error_mgr* base = jpeg_std_error(&errors.base);
  base->error_exit = Escape;
  base->emit_message = EscapeFromWarning;
  return base;
}

const JOCTET* Bytes(const std::string& text) {
  return reinterpret_cast<const JOCTET*>(text.data());
}

// An EXIF block with only the orientation tag, as cameras write it after "Exif".
std::string ExifWithOrientation(int orientation) {
  using std::string_literals::operator""s;
  return "Exif\0\0II*\0\x08\0\0\0\x01\0\x12\x01\x03\0\x01\0\0\0"s + static_cast<char>(orientation) +
         "\0\0\0\0\0\0\0"s;
}

void WriteMarkers(jpeg_compress_struct& info, const JpegOptions& options) {
  if (options.orientation != 0) {
    const std::string exif = ExifWithOrientation(options.orientation);
    jpeg_write_marker(&info, JPEG_APP0 + 1, Bytes(exif), static_cast<unsigned>(exif.size()));
  }
  if (!options.icc.empty()) {
    jpeg_write_icc_profile(&info, Bytes(options.icc), static_cast<unsigned>(options.icc.size()));
  }
}

// Fills `image`, which the caller owns, so that no object that needs a destructor lives across the
// jump.
bool Decode(jpeg_decompress_struct& info, ErrorManager& errors, const std::string& content,
            Image& image) {
  if (setjmp(errors.escape) != 0) return false;
  jpeg_mem_src(&info, Bytes(content), content.size());
  jpeg_read_header(&info, TRUE);
  info.out_color_space = JCS_RGB;
  jpeg_start_decompress(&info);
  image.width = static_cast<int>(info.output_width);
  image.height = static_cast<int>(info.output_height);
  image.pixels.resize(std::size_t{info.output_width} * info.output_height);
  while (info.output_scanline < info.output_height) {
    JSAMPROW row = image.pixels[std::size_t{info.output_scanline} * info.output_width].data();
    jpeg_read_scanlines(&info, &row, 1);
  }
  jpeg_finish_decompress(&info);
  return true;
}

}  // namespace

std::string EncodeJpeg(const Image& image, const JpegOptions& options) {
  jpeg_error_mgr errors{};
  jpeg_compress_struct info{};
  info.err = jpeg_std_error(&errors);  // Exits on an error; none is expected here.
  jpeg_create_compress(&info);
  unsigned char* buffer = nullptr;
  unsigned long size = 0;
  jpeg_mem_dest(&info, &buffer, &size);
  info.image_width = static_cast<JDIMENSION>(image.width);
  info.image_height = static_cast<JDIMENSION>(image.height);
  info.input_components = 3;
  info.in_color_space = JCS_RGB;
  jpeg_set_defaults(&info);
  if (options.gray) jpeg_set_colorspace(&info, JCS_GRAYSCALE);
  jpeg_set_quality(&info, options.quality, TRUE);
  jpeg_start_compress(&info, TRUE);
  WriteMarkers(info, options);
  while (info.next_scanline < info.image_height) {
    JSAMPROW row = const_cast<JSAMPROW>(
        image.pixels[std::size_t{info.next_scanline} * info.image_width].data());
    jpeg_write_scanlines(&info, &row, 1);
  }
  jpeg_finish_compress(&info);
  jpeg_destroy_compress(&info);
  std::string content(reinterpret_cast<const char*>(buffer), size);
  std::free(buffer);
  return content;
}

std::optional<Image> DecodeJpeg(const std::string& content) {
  ErrorManager errors{};
  jpeg_decompress_struct info{};
  info.err = UseErrorManager(errors);
  jpeg_create_decompress(&info);
  Image image;
  const bool whole = Decode(info, errors, content, image);
  jpeg_destroy_decompress(&info);
  return whole ? std::optional(std::move(image)) : std::nullopt;
}

std::string JpegHeaderOf(int width, int height, int orientation) {
  std::string content = EncodeJpeg(Plain(16, 16, {90, 90, 90}), {.orientation = orientation});
  // The start of frame: FF C0, two bytes of length, one of precision, height, width.
  const std::size_t frame = content.find("\xFF\xC0");
  if (frame == std::string::npos) throw std::runtime_error("no frame in the JPEG file");
  const auto put = [&](std::size_t at, int value) {
    content[at] = static_cast<char>(value >> 8);
    content[at + 1] = static_cast<char>(value & 0xFF);
  };
  put(frame + 5, height);
  put(frame + 7, width);
  return content;
}

}  // namespace keldo::testing
