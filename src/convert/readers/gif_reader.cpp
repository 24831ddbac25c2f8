#include <gif_lib.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <vector>

#include "convert/pixels/image.h"
#include "convert/readers/reader_tools.h"
#include "convert/readers/readers.h"

namespace keldo::convert {
namespace {

struct GifCodec {
  decltype(&::DGifOpen) open;
  decltype(&::DGifCloseFile) close;
  decltype(&::DGifGetRecordType) get_record_type;
  decltype(&::DGifGetExtension) get_extension;
  decltype(&::DGifGetExtensionNext) get_extension_next;
  decltype(&::DGifGetImageDesc) get_image_desc;
  decltype(&::DGifGetLine) get_line;
};

constinit GifCodec codec{};

[[noreturn]] void Refuse(const char* reason) {
  throw ImageError(ImageError::Kind::kCorrupt, reason);
}

// What is left of the file, followed by one zero: the end mark of the image data, which some files
// lack.
struct Source {
  Bytes left;
  bool end_given = false;
};

int Read(GifFileType* gif, GifByteType* to, int size) {
  auto* source = static_cast<Source*>(gif->UserData);
  if (source->left.empty() && !source->end_given && size == 1) {
    source->end_given = true;
    *to = 0;
    return 1;
  }
  const std::size_t count = std::min(static_cast<std::size_t>(size), source->left.size());
  if (count > 0) std::memcpy(to, source->left.data(), count);
  source->left = source->left.subspan(count);
  return static_cast<int>(count);
}

// The image is the first frame alone; where it lies on the animation's canvas does not matter to a
// thumbnail.
class GifReader : public ImageReader {
 public:
  GifReader(Bytes file, const ReadOptions& options) : source_{.left = file} {
    int error = 0;
    gif_ = codec.open(&source_, Read, &error);
    if (gif_ == nullptr) Refuse("the header of the GIF file is damaged");
    try {
      Prepare(options.limits);
    } catch (...) {
      codec.close(gif_, nullptr);
      throw;
    }
  }
  GifReader(const GifReader&) = delete;
  GifReader& operator=(const GifReader&) = delete;
  ~GifReader() override { codec.close(gif_, nullptr); }

  [[nodiscard]] const ImageInfo& info() const override { return info_; }

  [[nodiscard]] const std::uint8_t* NextRow() override {
    const auto width = static_cast<std::size_t>(info_.width);
    const std::uint8_t* from = indices_.data();
    if (!interlaced_) {
      ReadLine(indices_.data());
    } else {
      if (rows_read_ == 0) ReadInterlaced();
      from += width * rows_read_;
    }
    ++rows_read_;
    for (std::size_t x = 0; x < width; ++x) {
      if (from[x] >= colours_) Refuse("the GIF image has a colour that its palette lacks");
      std::memcpy(row_.data() + 3 * x, palette_[from[x]].data(), 3);
    }
    return row_.data();
  }

 private:
  void Prepare(const Limits& limits) {
    const int transparent = FindFrame();
    info_.width = info_.full_width = gif_->Image.Width;
    info_.height = info_.full_height = gif_->Image.Height;
    info_.has_alpha_or_palette = true;
    interlaced_ = gif_->Image.Interlace;
    const std::int64_t pixels = std::int64_t{info_.width} * info_.height;
    CheckLimits(limits, info_.width, info_.height, interlaced_ ? pixels : 0);
    FillPalette(transparent);
    const auto width = static_cast<std::size_t>(info_.width);
    indices_.resize(interlaced_ ? static_cast<std::size_t>(pixels) : width);
    row_.resize(3 * width);
  }

  // Goes to the first frame and returns its transparent colour, -1 for none.
  int FindFrame() {
    int transparent = -1;
    while (true) {
      GifRecordType type = UNDEFINED_RECORD_TYPE;
      if (codec.get_record_type(gif_, &type) == GIF_ERROR) Refuse("the GIF file is cut off");
      if (type == TERMINATE_RECORD_TYPE) Refuse("the GIF file has no image");
      if (type == IMAGE_DESC_RECORD_TYPE) break;
      if (type == EXTENSION_RECORD_TYPE) ReadExtension(transparent);
    }
    if (codec.get_image_desc(gif_) == GIF_ERROR) Refuse("the GIF file ends in its header");
    return transparent;
  }

  void ReadExtension(int& transparent) {
    int code = 0;
    GifByteType* block = nullptr;
    int status = codec.get_extension(gif_, &code, &block);
    while (status != GIF_ERROR && block != nullptr) {
      constexpr int kTransparentFlag = 1;
      if (code == GRAPHICS_EXT_FUNC_CODE && block[0] >= 4) {
        if ((block[1] & kTransparentFlag) != 0) transparent = block[4];
      }
      status = codec.get_extension_next(gif_, &block);
    }
    if (status == GIF_ERROR) Refuse("the GIF file is cut off");
  }

  void FillPalette(int transparent) {
    const ColorMapObject* map =
        gif_->Image.ColorMap != nullptr ? gif_->Image.ColorMap : gif_->SColorMap;
    if (map == nullptr) Refuse("the GIF image has no palette");
    colours_ = std::min(static_cast<std::size_t>(map->ColorCount), palette_.size());
    for (std::size_t i = 0; i < colours_; ++i)
      palette_[i] = {map->Colors[i].Red, map->Colors[i].Green, map->Colors[i].Blue};
    if (transparent < 0) return;
    const auto index = static_cast<std::size_t>(transparent);
    palette_[index] = BackgroundOf(index);
    // Some programs use the value after the palette's last.
    if (index == colours_) ++colours_;
  }

  // The file's own palette has a background colour. Where that is the transparent one, the pixels
  // come out black. A frame with a palette of its own lies over white.
  [[nodiscard]] Background BackgroundOf(std::size_t transparent) const {
    if (gif_->Image.ColorMap != nullptr) return kWhite;
    const std::size_t index =
        std::min(static_cast<std::size_t>(gif_->SBackGroundColor), colours_ - 1);
    return index == transparent ? Background{} : palette_[index];
  }

  void ReadLine(std::uint8_t* to) {
    if (codec.get_line(gif_, to, info_.width) == GIF_ERROR) {
      Refuse("the pixels of the GIF image are damaged or cut off");
    }
  }

  // Every eighth row first, then the rows in between.
  void ReadInterlaced() {
    struct Pass {
      int first;
      int step;
    };
    constexpr std::array<Pass, 4> kPasses{{{0, 8}, {4, 8}, {2, 4}, {1, 2}}};
    for (const Pass& pass : kPasses) {
      for (int y = pass.first; y < info_.height; y += pass.step)
        ReadLine(indices_.data() +
                 static_cast<std::size_t>(y) * static_cast<std::size_t>(info_.width));
    }
  }

  Source source_;
  GifFileType* gif_ = nullptr;
  ImageInfo info_;
  bool interlaced_ = false;
  std::array<Background, 256> palette_{};
  std::size_t colours_ = 0;
  std::size_t rows_read_ = 0;
  std::vector<std::uint8_t> indices_;  // of one row, or of all of an interlaced image
  std::vector<std::uint8_t> row_;
};

}  // namespace

bool LoadGif() {
  const CodecLibrary library("libgif.so.7");
  return library.Find(codec.open, "DGifOpen") && library.Find(codec.close, "DGifCloseFile") &&
         library.Find(codec.get_record_type, "DGifGetRecordType") &&
         library.Find(codec.get_extension, "DGifGetExtension") &&
         library.Find(codec.get_extension_next, "DGifGetExtensionNext") &&
         library.Find(codec.get_image_desc, "DGifGetImageDesc") &&
         library.Find(codec.get_line, "DGifGetLine");
}

std::unique_ptr<ImageReader> OpenGif(Bytes file, const ReadOptions& options) {
  return std::make_unique<GifReader>(file, options);
}

}  // namespace keldo::convert
