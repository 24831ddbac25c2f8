#include <webp/decode.h>

#include <optional>
#include <string_view>
#include <vector>

#include "convert/pixels/image.h"
#include "convert/readers/reader_tools.h"
#include "convert/readers/readers.h"
#include "util/bytes.h"

namespace keldo::convert {
namespace {

struct WebpCodec {
  decltype(&::WebPGetFeaturesInternal) get_features;
  decltype(&::WebPDecodeRGBInto) decode_rgb_into;
  decltype(&::WebPDecodeRGBAInto) decode_rgba_into;
};

constinit WebpCodec codec{};

constexpr std::size_t kFileHeader = 12;
constexpr std::size_t kChunkHeader = 8;
constexpr int kLossless = 2;

// The first chunk of an extended file starts with flags for the other chunks that it has.
enum Feature : std::uint8_t { kExifFeature = 0x08, kIccFeature = 0x20 };

// The content of a chunk; nothing when the flags do not announce it.
std::optional<Bytes> FindChunk(Bytes file, std::string_view name, Feature feature) {
  std::size_t place = kFileHeader;
  if (file.size() < place + kChunkHeader + 1 || TextAt(file, place, 4) != "VP8X")
    return std::nullopt;
  if ((file[place + kChunkHeader] & feature) == 0) return std::nullopt;
  while (file.size() - place >= kChunkHeader) {
    const std::size_t size = LittleEndian32(file.data() + place + 4);
    const std::size_t room = file.size() - place - kChunkHeader;
    if (size > room) return std::nullopt;
    if (TextAt(file, place, 4) == name) return file.subspan(place + kChunkHeader, size);
    // Chunks start at even offsets.
    const std::size_t step = kChunkHeader + size + size % 2;
    if (step > file.size() - place) return std::nullopt;
    place += step;
  }
  return std::nullopt;
}

WebPBitstreamFeatures FeaturesOf(Bytes file) {
  WebPBitstreamFeatures features{};
  const VP8StatusCode status =
      codec.get_features(file.data(), file.size(), &features, WEBP_DECODER_ABI_VERSION);
  if (status == VP8_STATUS_UNSUPPORTED_FEATURE) {
    throw ImageError(ImageError::Kind::kUnsupported, "an unknown kind of WebP");
  }
  if (status != VP8_STATUS_OK) {
    throw ImageError(ImageError::Kind::kCorrupt, "the header of the WebP file is damaged");
  }
  if (features.has_animation != 0) {
    throw ImageError(ImageError::Kind::kUnsupported, "an animated WebP file");
  }
  return features;
}

class WebpReader : public ImageReader {
 public:
  WebpReader(Bytes file, const ReadOptions& options) : file_(file) {
    const WebPBitstreamFeatures features = FeaturesOf(file);
    alpha_ = features.has_alpha != 0;
    const std::int64_t pixels = std::int64_t{features.width} * features.height;
    const std::int64_t bytes_held = pixels * (BytesPerPixel() + DecoderBytes(features));
    CheckLimits(options.limits, features.width, features.height, bytes_held);
    info_.width = info_.full_width = features.width;
    info_.height = info_.full_height = features.height;
    info_.has_alpha_or_palette = alpha_;
    if (const auto icc = FindChunk(file, "ICCP", kIccFeature)) {
      info_.icc.assign(icc->begin(), icc->end());
    }
    if (const auto exif = FindChunk(file, "EXIF", kExifFeature)) ReadExif(*exif);
  }

  [[nodiscard]] const ImageInfo& info() const override { return info_; }

  [[nodiscard]] const std::uint8_t* NextRow() override {
    if (pixels_.empty()) Decode();
    const auto width = static_cast<std::size_t>(info_.width);
    std::uint8_t* row = pixels_.data() + next_;
    next_ += stride_;
    if (alpha_) FlattenRgb(row, width, kWhite, row);
    return row;
  }

 private:
  [[nodiscard]] int BytesPerPixel() const { return alpha_ ? 4 : 3; }

  // What the decoder itself holds per pixel. The lossless decoder keeps a whole image, also for the
  // transparency of a lossy one, in addition to the transparency.
  static int DecoderBytes(const WebPBitstreamFeatures& features) {
    constexpr int kImage = 4;
    constexpr int kTransparency = 1;
    if (features.format == kLossless) return kImage;
    return features.has_alpha != 0 ? kImage + kTransparency : 0;
  }

  // WebP does not require the mark that EXIF blocks have in JPEG files, but blocks without it are
  // ignored, as ImageMagick does: either converter must give the same thumbnails.
  void ReadExif(Bytes exif) {
    using std::string_view_literals::operator""sv;
    constexpr std::string_view kMark = "Exif\0\0"sv;
    if (exif.size() <= kMark.size() || !StartsWith(exif, kMark)) return;
    exif = exif.subspan(kMark.size());
    info_.orientation = OrientationOf(exif);
    info_.density = DensityWithExif(exif, info_.density);
  }

  void Decode() {
    stride_ = static_cast<std::size_t>(info_.width) * static_cast<std::size_t>(BytesPerPixel());
    pixels_.resize(stride_ * static_cast<std::size_t>(info_.height));
    const auto decode = alpha_ ? codec.decode_rgba_into : codec.decode_rgb_into;
    if (decode(file_.data(), file_.size(), pixels_.data(), pixels_.size(),
               static_cast<int>(stride_)) == nullptr) {
      throw ImageError(ImageError::Kind::kCorrupt, "the WebP image is damaged or cut off");
    }
  }

  Bytes file_;
  ImageInfo info_;
  bool alpha_ = false;
  std::size_t stride_ = 0;
  std::size_t next_ = 0;
  std::vector<std::uint8_t> pixels_;
};

}  // namespace

bool LoadWebp() {
  const CodecLibrary library("libwebp.so.7");
  return library.Find(codec.get_features, "WebPGetFeaturesInternal") &&
         library.Find(codec.decode_rgb_into, "WebPDecodeRGBInto") &&
         library.Find(codec.decode_rgba_into, "WebPDecodeRGBAInto");
}

std::unique_ptr<ImageReader> OpenWebp(Bytes file, const ReadOptions& options) {
  return std::make_unique<WebpReader>(file, options);
}

}  // namespace keldo::convert
