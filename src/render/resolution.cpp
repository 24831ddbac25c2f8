#include "render/resolution.h"

#include <json/value.h>
#include <syslog.h>

#include <algorithm>
#include <cstdio>
#include <optional>
#include <string_view>

#include "platform/file_types.h"
#include "platform/index_ipc.h"
#include "platform/process.h"
#include "platform/text.h"
#include "process/isolated.h"
#include "process/output.h"
#include "render/libraw_file.h"
#include "thumbs/directories.h"
#include "thumbs/paths.h"

namespace keldo {
namespace {

constexpr const char* kSource = "keldothumb";
constexpr std::size_t kLongestLine = 255;
constexpr std::string_view kOutputSizeKey = "Output size:";
constexpr std::string_view kWhiteSpace = " \t\n\v\f\r";

// Line values of this source's messages.
constexpr int kOpenFailedLine = 931;
constexpr int kAdjustFailedLine = 936;
constexpr int kDcrawFailedLine = 952;
constexpr int kSourceFailedLine = 987;
constexpr int kThumbFailedLine = 991;

// Reads two numbers with `separator` between them, ignoring white space: "4000 x 3000".
bool ParseSize(std::string_view text, std::string_view separator, unsigned& x, unsigned& y) {
  const std::optional<int> width = process::TakeInteger(text);
  if (!width) return false;
  text.remove_prefix(std::min(text.find_first_not_of(kWhiteSpace), text.size()));
  if (!text.starts_with(separator)) return false;
  text.remove_prefix(separator.size());
  const std::optional<int> height = process::TakeInteger(text);
  if (!height) return false;
  x = static_cast<unsigned>(*width);
  y = static_cast<unsigned>(*height);
  return true;
}

// Reads the size from a line of dcraw's report, such as "Output size: 4000 x 3000". False for every
// other line.
bool ParseOutputSize(const std::string& line, unsigned& x, unsigned& y) {
  if (!line.starts_with(kOutputSizeKey)) return false;
  std::string value = line.substr(kOutputSizeKey.size());
  return ParseSize(StringTrim(value.data()), "x", x, y);
}

bool MeasureOrLog(const std::string& path, int log_line, unsigned& x, unsigned& y) {
  if (GetImageResolution(path, x, y)) return true;
  syslog(LOG_ERR, "%s:%d [Error] GetImageResolution: %s", kSource, log_line, path.c_str());
  return false;
}

keldoindexutils::MediaInfo SizedRecord(const std::string& path, unsigned x, unsigned y) {
  keldoindexutils::MediaInfo info;
  info.path(path);
  info.resolution_x(static_cast<int>(x));
  info.resolution_y(static_cast<int>(y));
  return info;
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
    return ParseSize(read.output, "", x, y);
  }
  if (read.finished && read.status == static_cast<int>(LibRawSizeStep::kAdjustFailed)) {
    syslog(LOG_ERR, "%s:%d Failed to adjust sizes info [%s] using libraw", kSource,
           kAdjustFailedLine, path.c_str());
  } else {
    syslog(LOG_ERR, "%s:%d Failed to open file [%s] using libraw", kSource, kOpenFailedLine,
           path.c_str());
  }
  return false;
}

bool GetDcrawOutputSize(const std::string& path, unsigned& x, unsigned& y) {
  FILE* stream = KLIBCPopen(paths::kDcraw, "rB", "-i", "-v", path.c_str(), nullptr);
  if (stream == nullptr) {
    syslog(LOG_ERR, "%s:%d [Error] KLIBCPopen: %s -i -v %s", kSource, kDcrawFailedLine,
           paths::kDcraw, path.c_str());
    return false;
  }
  bool found = false;
  process::StreamReader reader(stream);
  while (!found) {
    const std::optional<std::string> line = reader.ReadLine(kLongestLine);
    if (!line) break;
    found = ParseOutputSize(*line, x, y);
  }
  KLIBCPclose(stream);
  return found;
}

void ReportConvertedResolution(const ThumbJob& /*job*/, const std::string& source_path,
                               const std::string& thumb_path) {
  unsigned source_x = 0;
  unsigned source_y = 0;
  unsigned thumb_x = 0;
  unsigned thumb_y = 0;
  if (!MeasureOrLog(source_path, kSourceFailedLine, source_x, source_y)) return;
  if (!MeasureOrLog(thumb_path, kThumbFailedLine, thumb_x, thumb_y)) return;
  keldoindexutils::ipc::KELDOIDX_IndexConvertAdd(SizedRecord(source_path, source_x, source_y),
                                                 SizedRecord(thumb_path, thumb_x, thumb_y),
                                                 Json::Value(Json::objectValue));
}

}  // namespace keldo
