#include "thumbs/tool_selection.h"

#include <cstdlib>

#include "platform/file.h"
#include "platform/system.h"
#include "thumbs/paths.h"

namespace keldo {
namespace {

constexpr const char* kPackageVariable = "KELDO_CODEC_PKG_NAME";
constexpr const char* kPackageName = "zun";
constexpr long kLowMemoryKib = 524288;

std::string SelectTool(const char* package_path, const char* system_path) {
  if (!HasCodecPackage()) return system_path;
  setenv(kPackageVariable, kPackageName, 1);
  return package_path;
}

}  // namespace

bool HasCodecPackage() {
  return keldoindexutils::stat::DoesFileExist(paths::kCodecPackageMarker);
}

std::string ConverterPath() {
  return SelectTool(paths::kCodecPackageConverter, paths::kSystemConverter);
}

std::string TranscoderPath() {
  return SelectTool(paths::kCodecPackageTranscoder, paths::kSystemTranscoder);
}

bool IsLowMemory() {
  long total_kib = -1;
  // A failed call leaves -1, which counts as low: a converter held back is slow, one that runs out
  // of memory fails.
  GetTotalMemory(&total_kib);
  return total_kib < kLowMemoryKib;
}

}  // namespace keldo
