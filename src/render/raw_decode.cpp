#include "render/raw_decode.h"

#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <optional>

#include "platform/index_ipc.h"
#include "process/isolated.h"
#include "thumbs/directories.h"
#include "thumbs/metadata_names.h"
#include "util/path.h"

namespace keldo {
namespace {

constexpr const char* kSource = "keldothumb";

// Line values of the messages of the two back ends.
constexpr int kLibRawNotRegularLine = 841;
constexpr int kLibRawDiedLine = 858;
constexpr int kDcrawNotRegularLine = 886;
constexpr int kDcrawFailedLine = 905;

// What the isolated decoder reports.
enum DecodeOutcome : int { kNothing = 0, kPreview = 1, kFullDecode = 2 };

// The photo's status before decoding; nothing, and logged, when it is not a regular file.
std::optional<struct stat> StatRawSource(const std::string& path, int log_line) {
  struct stat status {};
  if (stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode)) return status;
  syslog(LOG_ERR, "%s:%d %s is not regular file", kSource, log_line, path.c_str());
  return std::nullopt;
}

// The result, unless the number of the photo's blocks has changed: a photo that grew or was
// replaced while it was read must not be shown.
std::string KeepIfUnchanged(const std::string& result, const std::string& source,
                            const struct stat& before) {
  struct stat now {};
  if (stat(source.c_str(), &now) == 0 && now.st_blocks == before.st_blocks) return result;
  if (!result.empty()) unlink(result.c_str());
  return {};
}

const ThumbProfile* LargestProfile(const ThumbJob& job) {
  return job.profiles->at(job.profiles->count(PHASE_ALL) - 1, PHASE_ALL);
}

DecodeOutcome DecodeWithLibRaw(const std::string& source, unsigned largest,
                               const std::string& preview, const std::string& ppm) {
  LibRawFile raw(source);
  if (!raw.opened()) return kNothing;
  if (PreviewIsLargeEnough(raw, largest) && ExtractRawPreview(raw, preview)) return kPreview;
  return DecodeRawToPpm(raw, ppm) ? kFullDecode : kNothing;
}

// True when dcraw's preview exists, can be measured and covers the largest thumbnail.
bool ExtractUsablePreview(const ThumbJob& job, const std::string& source,
                          const std::string& preview) {
  if (!RunDcrawToFile(source, preview, "-e")) return false;
  unsigned width = 0;
  unsigned height = 0;
  if (!keldoindexutils::KELDOIndexImgResGet(preview, width, height)) return false;
  const ThumbProfile* largest = LargestProfile(job);
  return largest != nullptr && static_cast<unsigned>(largest->size()) <= std::max(width, height);
}

}  // namespace

std::string ConvertRawImage(const ThumbJob& job, const std::string& source_path,
                            const std::string& thumb_dir) {
  return IsX3f(source_path) ? ConvertRawWithDcraw(job, source_path, thumb_dir)
                            : ConvertRawWithLibRaw(job, source_path, thumb_dir);
}

std::string ConvertRawWithLibRaw(const ThumbJob& job, const std::string& source_path,
                                 const std::string& thumb_dir) {
  const std::string ppm = JoinPath(thumb_dir, kRawImageName);
  const std::string preview = JoinPath(thumb_dir, kRawPreviewName);
  const std::optional<struct stat> before = StatRawSource(source_path, kLibRawNotRegularLine);
  if (!before) return {};

  const ThumbProfile* largest = LargestProfile(job);
  const unsigned size = largest == nullptr ? 0 : static_cast<unsigned>(largest->size());
  const process::IsolatedResult decoded = process::RunIsolated([&](std::string& /*output*/) {
    return static_cast<int>(DecodeWithLibRaw(source_path, size, preview, ppm));
  });
  if (!decoded.finished) {
    syslog(LOG_ERR, "%s:%d [Error] RAW decoder died on %s", kSource, kLibRawDiedLine,
           source_path.c_str());
  }
  std::string result;
  if (decoded.finished && decoded.status == kPreview) result = preview;
  if (decoded.finished && decoded.status == kFullDecode) result = ppm;
  return KeepIfUnchanged(result, source_path, *before);
}

std::string ConvertRawWithDcraw(const ThumbJob& job, const std::string& source_path,
                                const std::string& thumb_dir) {
  const std::string ppm = JoinPath(thumb_dir, kRawImageName);
  const std::string preview = JoinPath(thumb_dir, kRawPreviewName);
  const std::optional<struct stat> before = StatRawSource(source_path, kDcrawNotRegularLine);
  if (!before) return {};

  if (ExtractUsablePreview(job, source_path, preview)) {
    return KeepIfUnchanged(preview, source_path, *before);
  }
  unlink(preview.c_str());
  if (!RunDcrawToFile(source_path, ppm, "-w")) {
    syslog(LOG_ERR, "%s:%d Failed to convert raw %s to pnm", kSource, kDcrawFailedLine,
           source_path.c_str());
    unlink(ppm.c_str());
    return {};
  }
  return KeepIfUnchanged(ppm, source_path, *before);
}

bool ExtractRawPreview(LibRawFile& raw, const std::string& out_path) {
  return raw.UnpackPreview() == 0 && raw.WritePreview(out_path) == 0;
}

bool DecodeRawToPpm(LibRawFile& raw, const std::string& out_path) {
  return raw.Unpack() == 0 && raw.Process() == 0 && raw.WritePpm(out_path) == 0;
}

bool PreviewIsLargeEnough(const LibRawFile& raw, unsigned size) {
  if (raw.PreviewLength() == 0) return false;
  return size < raw.PreviewWidth() || size < raw.PreviewHeight();
}

void RemoveRawIntermediates(const std::string& thumb_dir) {
  unlink((JoinPath(thumb_dir, kRawImageName)).c_str());
  unlink((JoinPath(thumb_dir, kRawPreviewName)).c_str());
}

}  // namespace keldo
