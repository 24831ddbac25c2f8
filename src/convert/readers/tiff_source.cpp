#include "convert/readers/tiff_source.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>

#include "convert/pixels/image.h"
#include "convert/readers/codec_library.h"

namespace keldo::convert {

constinit TiffCodec tiff_codec{};

// How libtiff reads the file.
struct TiffCallbacks {
  static TiffSource& SourceOf(thandle_t handle) { return *static_cast<TiffSource*>(handle); }

  static tmsize_t Read(thandle_t handle, void* to, tmsize_t size) {
    TiffSource& source = SourceOf(handle);
    if (size <= 0 || source.place_ >= source.file_.size()) return 0;
    const std::size_t count =
        std::min<std::size_t>(static_cast<std::size_t>(size), source.file_.size() - source.place_);
    std::memcpy(to, source.file_.data() + source.place_, count);
    source.place_ += count;
    return static_cast<tmsize_t>(count);
  }

  static tmsize_t Write(thandle_t /*handle*/, void* /*from*/, tmsize_t /*size*/) { return 0; }

  static toff_t Seek(thandle_t handle, toff_t offset, int whence) {
    TiffSource& source = SourceOf(handle);
    if (whence == SEEK_SET) source.place_ = offset;
    if (whence == SEEK_CUR) source.place_ += offset;
    if (whence == SEEK_END) source.place_ = source.file_.size() + offset;
    return source.place_;
  }

  static int Close(thandle_t /*handle*/) { return 0; }

  static toff_t Size(thandle_t handle) { return SourceOf(handle).file_.size(); }

  // libtiff only reads through the pointer, the file being opened for reading.
  static int Map(thandle_t handle, void** base, toff_t* size) {
    TiffSource& source = SourceOf(handle);
    *base = const_cast<std::uint8_t*>(source.file_.data());
    *size = source.file_.size();
    return 1;
  }

  static void Unmap(thandle_t /*handle*/, void* /*base*/, toff_t /*size*/) {}
};

namespace {

constexpr int kHandled = 1;

int IgnoreWarning(TIFF* /*tiff*/, void* /*self*/, const char* /*module*/, const char* /*format*/,
                  va_list /*values*/) {
  return kHandled;
}

}  // namespace

TiffSource::TiffSource(Bytes file, const Limits& limits) : file_(file) {
  const std::unique_ptr<TIFFOpenOptions, decltype(tiff_codec.options_free)> options(
      tiff_codec.options_alloc(), tiff_codec.options_free);
  tiff_codec.options_set_max_single_mem_alloc(options.get(), limits.memory_bytes);
  tiff_codec.options_set_error_handler(options.get(), OnError, this);
  tiff_codec.options_set_warning_handler(options.get(), IgnoreWarning, nullptr);
  using Calls = TiffCallbacks;
  tiff_ = tiff_codec.client_open_ext("input", "r", this, Calls::Read, Calls::Write, Calls::Seek,
                                     Calls::Close, Calls::Size, Calls::Map, Calls::Unmap,
                                     options.get());
  if (tiff_ == nullptr) Refuse();
}

TiffSource::~TiffSource() {
  tiff_codec.close(tiff_);
}

void TiffSource::Refuse() const {
  throw ImageError(ImageError::Kind::kCorrupt,
                   std::string("the TIFF file is damaged: ") + reason_.data());
}

int TiffSource::OnError(TIFF* /*tiff*/, void* self, const char* /*module*/, const char* format,
                        va_list values) {
  std::array<char, 120>& reason = static_cast<TiffSource*>(self)->reason_;
  std::vsnprintf(reason.data(), reason.size(), format, values);
  return kHandled;
}

bool LoadTiffCodec() {
  TiffCodec& codec = tiff_codec;
  const CodecLibrary library("libtiff.so.6");
  return library.Find(codec.options_alloc, "TIFFOpenOptionsAlloc") &&
         library.Find(codec.options_free, "TIFFOpenOptionsFree") &&
         library.Find(codec.options_set_max_single_mem_alloc,
                      "TIFFOpenOptionsSetMaxSingleMemAlloc") &&
         library.Find(codec.options_set_error_handler, "TIFFOpenOptionsSetErrorHandlerExtR") &&
         library.Find(codec.options_set_warning_handler, "TIFFOpenOptionsSetWarningHandlerExtR") &&
         library.Find(codec.client_open_ext, "TIFFClientOpenExt") &&
         library.Find(codec.close, "TIFFClose") && library.Find(codec.get_field, "TIFFGetField") &&
         library.Find(codec.get_field_defaulted, "TIFFGetFieldDefaulted") &&
         library.Find(codec.set_field, "TIFFSetField") &&
         library.Find(codec.is_tiled, "TIFFIsTiled") &&
         library.Find(codec.is_codec_configured, "TIFFIsCODECConfigured") &&
         library.Find(codec.scanline_size, "TIFFScanlineSize64") &&
         library.Find(codec.tile_row_size, "TIFFTileRowSize64") &&
         library.Find(codec.read_scanline, "TIFFReadScanline") &&
         library.Find(codec.read_tile, "TIFFReadTile");
}

}  // namespace keldo::convert
