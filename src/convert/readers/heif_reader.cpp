#include <libheif/heif.h>
#include <sched.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "convert/readers/reader_tools.h"
#include "convert/readers/readers.h"

namespace keldo::convert {
namespace {

// The functions of libheif that we use, filled by LoadHeif.
struct HeifCodec {
  decltype(&::heif_init) init;
  decltype(&::heif_context_alloc) context_alloc;
  decltype(&::heif_context_free) context_free;
  decltype(&::heif_context_set_maximum_image_size_limit) set_size_limit;
  decltype(&::heif_context_set_max_decoding_threads) set_threads;
  decltype(&::heif_context_read_from_memory_without_copy) read_from_memory;
  decltype(&::heif_context_get_primary_image_handle) get_primary;
  decltype(&::heif_image_handle_release) handle_release;
  decltype(&::heif_image_handle_get_width) handle_width;
  decltype(&::heif_image_handle_get_height) handle_height;
  decltype(&::heif_image_handle_has_alpha_channel) handle_has_alpha;
  decltype(&::heif_image_handle_get_luma_bits_per_pixel) handle_bits;
  decltype(&::heif_image_handle_get_raw_color_profile_size) profile_size;
  decltype(&::heif_image_handle_get_raw_color_profile) profile;
  decltype(&::heif_image_handle_get_list_of_metadata_block_IDs) metadata_ids;
  decltype(&::heif_image_handle_get_metadata_size) metadata_size;
  decltype(&::heif_image_handle_get_metadata) metadata;
  decltype(&::heif_decode_image) decode;
  decltype(&::heif_image_release) image_release;
  decltype(&::heif_image_get_width) image_width;
  decltype(&::heif_image_get_height) image_height;
  decltype(&::heif_image_get_bits_per_pixel_range) image_bits;
  decltype(&::heif_image_get_plane_readonly) plane;
};

constinit HeifCodec codec{};

// AV1 decoders start a thread for every processor that they may run on, and libheif has no option
// against that. While this object lives they may run on only a few. Where threads cannot be bound,
// more start, and nothing else changes.
class FewProcessors {
 public:
  explicit FewProcessors(int count) {
    if (::sched_getaffinity(0, sizeof allowed_, &allowed_) != 0) return;
    cpu_set_t few;
    CPU_ZERO(&few);
    // Starting with the one whose caches are warm for this thread.
    const int here = std::max(::sched_getcpu(), 0);
    for (int i = 0; i < CPU_SETSIZE && CPU_COUNT(&few) < count; ++i) {
      const auto processor = static_cast<std::size_t>((here + i) % CPU_SETSIZE);
      if (CPU_ISSET(processor, &allowed_)) CPU_SET(processor, &few);
    }
    bound_ = ::sched_setaffinity(0, sizeof few, &few) == 0;
  }
  FewProcessors(const FewProcessors&) = delete;
  FewProcessors& operator=(const FewProcessors&) = delete;
  ~FewProcessors() {
    if (bound_) ::sched_setaffinity(0, sizeof allowed_, &allowed_);
  }

 private:
  cpu_set_t allowed_{};
  bool bound_ = false;
};

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

// Decoded whole at the first call of NextRow; libheif rotates and mirrors it.
class HeifReader : public ImageReader {
 public:
  HeifReader(Bytes file, const ReadOptions& options)
      : one_thread_(options.one_thread), context_(codec.context_alloc()) {
    codec.set_size_limit(context_.get(), options.limits.side);
    // Tiles are decoded in this thread: with a second one this thread would only wait.
    codec.set_threads(context_.get(), 0);
    Check(codec.read_from_memory(context_.get(), file.data(), file.size(), nullptr));
    heif_image_handle* handle = nullptr;
    Check(codec.get_primary(context_.get(), &handle));
    handle_.reset(handle);
    alpha_ = codec.handle_has_alpha(handle) != 0;
    // -1 when the file does not say.
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

  // The interleaved pixels, and the planes that they are made from.
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

  // libheif has already applied the orientation in it.
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

  // Always to interleaved RGB: asked for the codec's own planes, libheif would convert them to RGB
  // and back.
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
  bool deep_ = false;  // more than 8 bits per sample
  unsigned most_ = 0;  // the largest sample of a deep image
  const std::uint8_t* next_ = nullptr;
  std::size_t stride_ = 0;
  std::vector<std::uint8_t> row_;
};

bool FindHandleFunctions(const CodecLibrary& library) {
  return library.Find(codec.handle_release, "heif_image_handle_release") &&
         library.Find(codec.handle_width, "heif_image_handle_get_width") &&
         library.Find(codec.handle_height, "heif_image_handle_get_height") &&
         library.Find(codec.handle_has_alpha, "heif_image_handle_has_alpha_channel") &&
         library.Find(codec.handle_bits, "heif_image_handle_get_luma_bits_per_pixel") &&
         library.Find(codec.profile_size, "heif_image_handle_get_raw_color_profile_size") &&
         library.Find(codec.profile, "heif_image_handle_get_raw_color_profile") &&
         library.Find(codec.metadata_ids, "heif_image_handle_get_list_of_metadata_block_IDs") &&
         library.Find(codec.metadata_size, "heif_image_handle_get_metadata_size") &&
         library.Find(codec.metadata, "heif_image_handle_get_metadata");
}

bool FindFunctions(const CodecLibrary& library) {
  return library.Find(codec.init, "heif_init") &&
         library.Find(codec.context_alloc, "heif_context_alloc") &&
         library.Find(codec.context_free, "heif_context_free") &&
         library.Find(codec.set_size_limit, "heif_context_set_maximum_image_size_limit") &&
         library.Find(codec.set_threads, "heif_context_set_max_decoding_threads") &&
         library.Find(codec.read_from_memory, "heif_context_read_from_memory_without_copy") &&
         library.Find(codec.get_primary, "heif_context_get_primary_image_handle") &&
         library.Find(codec.decode, "heif_decode_image") &&
         library.Find(codec.image_release, "heif_image_release") &&
         library.Find(codec.image_width, "heif_image_get_width") &&
         library.Find(codec.image_height, "heif_image_get_height") &&
         library.Find(codec.image_bits, "heif_image_get_bits_per_pixel_range") &&
         library.Find(codec.plane, "heif_image_get_plane_readonly");
}

}  // namespace

bool LoadHeif() {
  const CodecLibrary library("libheif.so.1");
  if (!FindFunctions(library) || !FindHandleFunctions(library)) return false;
  // This looks for plug-ins, while files can still be opened.
  return codec.init(nullptr).code == heif_error_Ok;
}

std::unique_ptr<ImageReader> OpenHeif(Bytes file, const ReadOptions& options) {
  return std::make_unique<HeifReader>(file, options);
}

}  // namespace keldo::convert
