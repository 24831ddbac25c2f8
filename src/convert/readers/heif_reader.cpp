#include "convert/readers/heif_reader.h"

#include <algorithm>
#include <string>
#include <vector>

#include "convert/pixels/image.h"
#include "convert/readers/exif_orientation.h"
#include "convert/readers/few_processors.h"
#include "convert/readers/flatten.h"
#include "convert/readers/heif_codec.h"
#include "util/bytes.h"

namespace keldo::convert {
namespace {

constexpr const HeifCodec& codec = heif_codec;

struct FreeContext {
  void operator()(heif_context* context) const { codec.context_free(context); }
};
struct FreeHandle {
  void operator()(heif_image_handle* handle) const { codec.handle_release(handle); }
};
struct FreeImage {
  void operator()(heif_image* image) const { codec.image_release(image); }
};

ImageError::Kind KindOf(const heif_error& error) {
  if (error.subcode == heif_suberror_Security_limit_exceeded) return ImageError::Kind::kLimit;
  switch (error.code) {
    case heif_error_Unsupported_filetype:
    case heif_error_Unsupported_feature:
      return ImageError::Kind::kUnsupported;
    default:
      return ImageError::Kind::kCorrupt;
  }
}

void Check(const heif_error& error) {
  if (error.code == heif_error_Ok) return;
  throw ImageError(KindOf(error), std::string("the HEIF file cannot be read: ") + error.message);
}

// Decoded whole when the first row is asked for; turned and mirrored by libheif.
class HeifReader : public ImageReader {
 public:
  HeifReader(Bytes file, const ReadOptions& options)
      : one_thread_(options.one_thread), context_(codec.context_alloc()) {
    codec.set_size_limit(context_.get(), options.limits.side);
    // Tiles are decoded in this thread: one beside it would only make this one wait.
    codec.set_threads(context_.get(), 0);
    Check(codec.read_from_memory(context_.get(), file.data(), file.size(), nullptr));
    heif_image_handle* handle = nullptr;
    Check(codec.get_primary(context_.get(), &handle));
    handle_.reset(handle);
    alpha_ = codec.handle_has_alpha(handle) != 0;
    // -1 stands for a file that does not say.
    deep_ = codec.handle_bits(handle) > 8;
    info_.width = info_.full_width = codec.handle_width(handle);
    info_.height = info_.full_height = codec.handle_height(handle);
    info_.has_alpha_or_palette = alpha_;
    CheckLimits(options.limits, info_.width, info_.height, BytesHeld());
    ReadProfile(file.size());
    ReadExif(file.size());
  }

  [[nodiscard]] const ImageInfo& info() const override { return info_; }

  [[nodiscard]] const std::uint8_t* NextRow() override {
    if (image_ == nullptr) Decode();
    const std::uint8_t* row = next_;
    next_ += stride_;
    if (deep_) row = Shallow(row);
    if (!alpha_) return row;
    FlattenRgb(row, static_cast<std::size_t>(info_.width), kWhite, row_.data());
    return row_.data();
  }

 private:
  [[nodiscard]] std::size_t Samples() const { return alpha_ ? 4 : 3; }

  // The interleaved pixels beside the planes that they are made from.
  [[nodiscard]] std::int64_t BytesHeld() const {
    const std::int64_t pixels = std::int64_t{info_.width} * info_.height;
    const auto samples = static_cast<std::int64_t>(Samples());
    return pixels * 2 * samples * (deep_ ? 2 : 1);
  }

  // Nothing in the file can be larger than the file.
  void ReadProfile(std::size_t most) {
    const std::size_t size = codec.profile_size(handle_.get());
    if (size == 0 || size > most) return;
    info_.icc.resize(size);
    Check(codec.profile(handle_.get(), info_.icc.data()));
  }

  // The orientation in it is what libheif has done already.
  void ReadExif(std::size_t most) {
    heif_item_id id = 0;
    if (codec.metadata_ids(handle_.get(), "Exif", &id, 1) != 1) return;
    constexpr std::size_t kOffsetSize = 4;
    const std::size_t size = codec.metadata_size(handle_.get(), id);
    if (size <= kOffsetSize || size > most) return;
    std::vector<std::uint8_t> block(size);
    if (codec.metadata(handle_.get(), id, block.data()).code != heif_error_Ok) return;
    const std::size_t offset = BigEndian32(block.data());
    const Bytes exif = Bytes(block).subspan(kOffsetSize);
    if (offset < exif.size()) info_.density = DensityWithExif(exif.subspan(offset), info_.density);
  }

  // Always to interleaved RGB: asked for the planes that the codec makes, libheif makes RGB of them
  // and planes of that again.
  void Decode() {
    heif_chroma chroma = alpha_ ? heif_chroma_interleaved_RGBA : heif_chroma_interleaved_RGB;
    if (deep_) {
      chroma = alpha_ ? heif_chroma_interleaved_RRGGBBAA_LE : heif_chroma_interleaved_RRGGBB_LE;
    }
    heif_image* image = nullptr;
    const FewProcessors processors(one_thread_ ? 1 : 2);
    Check(codec.decode(handle_.get(), &image, heif_colorspace_RGB, chroma, nullptr));
    image_.reset(image);
    int stride = 0;
    next_ = codec.plane(image, heif_channel_interleaved, &stride);
    const std::size_t row_bytes =
        static_cast<std::size_t>(info_.width) * Samples() * (deep_ ? 2 : 1);
    if (next_ == nullptr || stride < 0 || static_cast<std::size_t>(stride) < row_bytes ||
        codec.image_width(image, heif_channel_interleaved) != info_.width ||
        codec.image_height(image, heif_channel_interleaved) != info_.height) {
      throw ImageError(ImageError::Kind::kCorrupt, "the HEIF image is not as large as announced");
    }
    stride_ = static_cast<std::size_t>(stride);
    const int bits = codec.image_bits(image, heif_channel_interleaved);
    most_ = (1U << static_cast<unsigned>(std::clamp(bits, 8, 16))) - 1;
    if (deep_ || alpha_) row_.resize(static_cast<std::size_t>(info_.width) * Samples());
  }

  const std::uint8_t* Shallow(const std::uint8_t* row) {
    constexpr unsigned kByte = 255;
    for (std::size_t i = 0; i < row_.size(); ++i) {
      const unsigned value = std::min<unsigned>(LittleEndian16(row + 2 * i), most_);
      row_[i] = static_cast<std::uint8_t>((value * kByte + most_ / 2) / most_);
    }
    return row_.data();
  }

  bool one_thread_;
  std::unique_ptr<heif_context, FreeContext> context_;
  std::unique_ptr<heif_image_handle, FreeHandle> handle_;
  std::unique_ptr<heif_image, FreeImage> image_;
  ImageInfo info_;
  bool alpha_ = false;
  bool deep_ = false;  // more than 8 bits a sample
  unsigned most_ = 0;  // the largest sample of a deep image
  const std::uint8_t* next_ = nullptr;
  std::size_t stride_ = 0;
  std::vector<std::uint8_t> row_;
};

}  // namespace

bool LoadHeif() {
  return LoadHeifCodec();
}

std::unique_ptr<ImageReader> OpenHeif(Bytes file, const ReadOptions& options) {
  return std::make_unique<HeifReader>(file, options);
}

}  // namespace keldo::convert
