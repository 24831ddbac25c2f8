#include "render/libraw_file.h"

#include <libraw/libraw.h>
#include <syslog.h>

#include <utility>

namespace keldo {
namespace {

constexpr const char* kSource = "keldothumb";
constexpr unsigned kNoConstructorFlags = 0;
constexpr INT64 kMaxBufferBytes = 262144000;
constexpr int kOpenFailedLine = 812;

}  // namespace

struct LibRawFile::Processor {
  LibRaw raw{kNoConstructorFlags};
};

LibRawFile::LibRawFile(std::string path) : processor_(std::make_unique<Processor>()) {
  // The white balance that the camera chose, as the photographer saw it; the external decoder is
  // asked for the same.
  processor_->raw.imgdata.params.use_camera_wb = 1;
  if (processor_->raw.open_file(path.c_str(), kMaxBufferBytes) != LIBRAW_SUCCESS) {
    syslog(LOG_ERR, "%s:%d Failed to open file [%s] using libraw", kSource, kOpenFailedLine,
           path.c_str());
    return;
  }
  path_ = std::move(path);
  opened_ = true;
}

LibRawFile::~LibRawFile() = default;

unsigned LibRawFile::PreviewLength() const {
  return processor_->raw.imgdata.thumbnail.tlength;
}

unsigned LibRawFile::PreviewWidth() const {
  return processor_->raw.imgdata.thumbnail.twidth;
}

unsigned LibRawFile::PreviewHeight() const {
  return processor_->raw.imgdata.thumbnail.theight;
}

int LibRawFile::UnpackPreview() {
  return processor_->raw.unpack_thumb();
}

int LibRawFile::WritePreview(const std::string& path) {
  return processor_->raw.dcraw_thumb_writer(path.c_str());
}

int LibRawFile::Unpack() {
  return processor_->raw.unpack();
}

int LibRawFile::Process() {
  return processor_->raw.dcraw_process();
}

int LibRawFile::WritePpm(const std::string& path) {
  return processor_->raw.dcraw_ppm_tiff_writer(path.c_str());
}

LibRawSizeStep ReadLibRawOutputSize(const std::string& path, unsigned& width, unsigned& height) {
  const auto raw = std::make_unique<LibRaw>(kNoConstructorFlags);
  if (raw->open_file(path.c_str(), kMaxBufferBytes) != LIBRAW_SUCCESS) {
    return LibRawSizeStep::kOpenFailed;
  }
  if (raw->adjust_sizes_info_only() != LIBRAW_SUCCESS) return LibRawSizeStep::kAdjustFailed;
  width = raw->imgdata.sizes.iwidth;
  height = raw->imgdata.sizes.iheight;
  return LibRawSizeStep::kDone;
}

}  // namespace keldo
