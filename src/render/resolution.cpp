#include "render/resolution.h"

#include <json/value.h>
#include <syslog.h>

#include <array>
#include <cstdio>
#include <cstring>

#include "platform/file_types.h"
#include "platform/index_ipc.h"
#include "platform/process.h"
#include "platform/text.h"
#include "process/isolated.h"
#include "render/libraw_file.h"
#include "thumbs/index.h"
#include "thumbs/paths.h"

namespace keldo {
namespace {

constexpr std::size_t kLineBufferSize = 256;
constexpr const char* kOutputSizeKey = "Output size";

// Line values of this source's messages.
constexpr int kOpenFailedLine = 931;
constexpr int kAdjustFailedLine = 936;
constexpr int kDcrawFailedLine = 952;
constexpr int kSourceFailedLine = 987;
constexpr int kThumbFailedLine = 991;

// Reads the size from one line of dcraw's report ("Output size: 4000 x 3000"). Cuts up `line`.
bool ParseOutputSize(char* line, unsigned& x, unsigned& y) {
  char* colon = std::strchr(line, ':');
  if (colon == nullptr || colon[1] == '\0') return false;
  *colon = '\0';
  if (std::strcmp(line, kOutputSizeKey) != 0) return false;
  int width = 0;
  int height = 0;
  // A line that holds no two numbers is passed over.
  // NOLINTNEXTLINE(cert-err34-c): sizes of pictures do not overflow
  if (std::sscanf(StringTrim(colon + 1), "%d x %d", &width, &height) != 2) return false;
  x = static_cast<unsigned>(width);
  y = static_cast<unsigned>(height);
  return true;
}

void CutNewline(char* line) {
  const std::size_t length = std::strlen(line);
  if (length > 0 && line[length - 1] == '\n') line[length - 1] = '\0';
}

bool MeasureOrLog(const std::string& path, int log_line, unsigned& x, unsigned& y) {
  if (GetImageResolution(path, x, y)) return true;
  syslog(LOG_ERR, "%s:%d [Error] GetImageResolution: %s", "keldothumb", log_line, path.c_str());
  return false;
}

keldoindexutils::MediaInfo SizedRecord(const std::string& path, unsigned x, unsigned y) {
  keldoindexutils::MediaInfo info;
  info.path(path);
  info.resolution_x(static_cast<int>(x));
  info.resolution_y(static_cast<int>(y));
  return info;
}

// What the isolated LibRaw found out, passed as text: "4000 3000".
bool ParseSizes(const std::string& text, unsigned& x, unsigned& y) {
  return std::sscanf(text.c_str(), "%u %u", &x, &y) == 2;  // NOLINT(cert-err34-c): our own text
}

}  // namespace

bool GetImageResolution(const std::string& path, unsigned& x, unsigned& y) {
  if (!keldoindexutils::DoesRawImage(keldoindexutils::GetFileExtension(path))) {
    return keldoindexutils::KELDOIndexImgResGet(path, x, y);
  }
  return IsX3f(path) ? GetDcrawOutputSize(path, x, y) : GetLibRawOutputSize(path, x, y);
}

bool GetLibRawOutputSize(const std::string& path, unsigned& x, unsigned& y) {
  const process::IsolatedResult read = process::RunIsolated([&path](std::string& output) {
    unsigned width = 0;
    unsigned height = 0;
    const LibRawSizeStep step = ReadLibRawOutputSize(path, width, height);
    output = std::to_string(width) + " " + std::to_string(height);
    return static_cast<int>(step);
  });
  if (read.finished && read.status == static_cast<int>(LibRawSizeStep::kDone)) {
    return ParseSizes(read.output, x, y);
  }
  if (read.finished && read.status == static_cast<int>(LibRawSizeStep::kAdjustFailed)) {
    syslog(LOG_ERR, "%s:%d Failed to adjust sizes info [%s] using libraw", "keldothumb",
           kAdjustFailedLine, path.c_str());
  } else {
    syslog(LOG_ERR, "%s:%d Failed to open file [%s] using libraw", "keldothumb", kOpenFailedLine,
           path.c_str());
  }
  return false;
}

bool GetDcrawOutputSize(const std::string& path, unsigned& x, unsigned& y) {
  FILE* stream = KLIBCPopen(paths::kDcraw, "rB", "-i", "-v", path.c_str(), nullptr);
  if (stream == nullptr) {
    syslog(LOG_ERR, "%s:%d [Error] KLIBCPopen: %s -i -v %s", "keldothumb", kDcrawFailedLine,
           paths::kDcraw, path.c_str());
    return false;
  }
  bool found = false;
  std::array<char, kLineBufferSize> line{};
  while (!found && KLIBCPReadLine(stream, line.data(), line.size())) {
    CutNewline(line.data());
    found = ParseOutputSize(line.data(), x, y);
  }
  KLIBCPclose(stream);
  return found;
}

void ReportConvertedResolution(const ThumbJob& /*job*/, const std::string& sourcePath,
                               const std::string& thumbPath) {
  unsigned source_x = 0;
  unsigned source_y = 0;
  unsigned thumb_x = 0;
  unsigned thumb_y = 0;
  if (!MeasureOrLog(sourcePath, kSourceFailedLine, source_x, source_y)) return;
  if (!MeasureOrLog(thumbPath, kThumbFailedLine, thumb_x, thumb_y)) return;
  keldoindexutils::ipc::KELDOIDX_IndexConvertAdd(SizedRecord(sourcePath, source_x, source_y),
                                                 SizedRecord(thumbPath, thumb_x, thumb_y),
                                                 Json::Value(Json::objectValue));
}

}  // namespace keldo
