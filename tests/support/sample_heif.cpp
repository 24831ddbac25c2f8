#include <libheif/heif_cxx.h>

#include "support/sample_files.h"

// The encoder leaks, and so does the decoder on damaged files. These leaks are not ours.
extern "C" const char* __lsan_default_suppressions() {
  return "leak:libx265\nleak:libdav1d\n";
}

namespace keldo::convert::testing {
namespace {

heif_chroma ChromaOf(const HeifFacts& facts) {
  if (facts.bits > 8) {
    return facts.alpha ? heif_chroma_interleaved_RRGGBBAA_LE : heif_chroma_interleaved_RRGGBB_LE;
  }
  return facts.alpha ? heif_chroma_interleaved_RGBA : heif_chroma_interleaved_RGB;
}

heif::Image ImageOf(const HeifFacts& facts) {
  heif::Image image;
  image.create(facts.width, facts.height, heif_colorspace_RGB, ChromaOf(facts));
  image.add_plane(heif_channel_interleaved, facts.width, facts.height, facts.bits);
  int stride = 0;
  std::uint8_t* plane = image.get_plane(heif_channel_interleaved, &stride);
  const int samples = facts.alpha ? 4 : 3;
  for (int y = 0; y < facts.height; ++y) {
    for (int i = 0; i < facts.width * samples; ++i) {
      // Smooth gradients, so that little is lost: to the right, down, and their sum.
      const int x = i / samples;
      const int channel = i % samples;
      int value = channel == 0 ? x * 3 : y * 4;
      if (channel == 2) value = x + y;
      if (channel == 3) value = 255 - x * 2;
      if (facts.bits == 8) {
        plane[y * stride + i] = static_cast<std::uint8_t>(value);
      } else {
        const int deep = value << (facts.bits - 8);
        plane[y * stride + 2 * i] = static_cast<std::uint8_t>(deep);
        plane[y * stride + 2 * i + 1] = static_cast<std::uint8_t>(deep >> 8);
      }
    }
  }
  if (!facts.icc.empty()) image.set_raw_color_profile(heif_color_profile_type_prof, facts.icc);
  return image;
}

class DataWriter : public heif::Context::Writer {
 public:
  heif_error write(const void* data, size_t size) override {
    const auto* bytes = static_cast<const std::uint8_t*>(data);
    data_.assign(bytes, bytes + size);
    return {heif_error_Ok, heif_suberror_Unspecified, ""};
  }
  [[nodiscard]] const Data& data() const { return data_; }

 private:
  Data data_;
};

}  // namespace

Data HeifFile(const HeifFacts& facts) {
  heif::Context context;
  heif::Encoder encoder(facts.av1 ? heif_compression_AV1 : heif_compression_HEVC);
  constexpr int kQuality = 95;
  encoder.set_lossy_quality(kQuality);
  if (facts.bits > 8) encoder.set_string_parameter("chroma", "422");
  heif::Context::EncodingOptions options;
  options.image_orientation = static_cast<heif_orientation>(facts.orientation);
  options.save_alpha_channel = facts.alpha ? 1 : 0;
  const heif::ImageHandle handle = context.encode_image(ImageOf(facts), encoder, options);
  if (!facts.exif.empty()) {
    context.add_exif_metadata(handle, facts.exif.data(), static_cast<int>(facts.exif.size()));
  }
  DataWriter writer;
  context.write(writer);
  return writer.data();
}

}  // namespace keldo::convert::testing
