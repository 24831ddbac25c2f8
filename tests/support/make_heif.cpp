// Writes a HEIC or AVIF file for the tests: make_heif FILE hevc|av1 WIDTH HEIGHT ORIENTATION
//
// This is a separate program because the tests check when their own process loads libheif.
#include <libheif/heif_cxx.h>

#include <cstring>
#include <iostream>
#include <span>
#include <string>

namespace {

heif::Image Gray(int width, int height) {
  heif::Image image;
  image.create(width, height, heif_colorspace_RGB, heif_chroma_interleaved_RGB);
  image.add_plane(heif_channel_interleaved, width, height, 8);
  int stride = 0;
  std::uint8_t* pixels = image.get_plane(heif_channel_interleaved, &stride);
  std::memset(pixels, 0x80, static_cast<std::size_t>(stride) * static_cast<std::size_t>(height));
  return image;
}

}  // namespace

int main(int argc, char** argv) {
  const std::span<char*> arguments(argv, static_cast<std::size_t>(argc));
  if (arguments.size() != 6) return 2;
  const bool avif = std::string(arguments[2]) == "av1";
  try {
    heif::Context context;
    heif::Encoder encoder(avif ? heif_compression_AV1 : heif_compression_HEVC);
    heif::Context::EncodingOptions options;
    options.image_orientation = static_cast<heif_orientation>(std::stoi(arguments[5]));
    context.encode_image(Gray(std::stoi(arguments[3]), std::stoi(arguments[4])), encoder, options);
    context.write_to_file(arguments[1]);
  } catch (const heif::Error& error) {
    std::cerr << "make_heif: " << error.get_message() << '\n';
    return 1;
  }
  return 0;
}
