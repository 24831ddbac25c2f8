#include "render/orientation.h"

#include <syslog.h>

#include <cstdio>
#include <optional>
#include <string_view>

#include "platform/process.h"
#include "platform/system.h"
#include "process/output.h"
#include "render/resolution.h"
#include "render/thumb_requests.h"
#include "thumbs/directories.h"
#include "thumbs/metadata_names.h"
#include "thumbs/paths.h"

namespace keldo {
namespace {

constexpr const char* kSource = "keldothumb";
constexpr std::size_t kLongestLine = 255;
constexpr int kNotMeasured = 65535;
constexpr int kErrorLevel = 3;

// Line values of this source's messages.
constexpr int kCompareFailedLine = 1011;
constexpr int kCleanUpFailedLine = 1094;

// The largest existing thumbnail, which new renderings are compared with.
struct Reference {
  const ThumbProfile* profile;
  FoundThumbnail thumbnail;
};

std::optional<Reference> FindReference(const ThumbProfileList& profiles,
                                       const std::string& thumb_dir) {
  for (std::size_t i = profiles.count(PHASE_ALL); i > 0; --i) {
    const ThumbProfile* profile = profiles.at(i - 1, PHASE_ALL);
    const std::optional<FoundThumbnail> found = FindThumbnail(*profile, thumb_dir);
    if (found) return Reference{profile, *found};
  }
  return std::nullopt;
}

// True when one of the two is landscape and the other portrait. False for squares and for images
// that cannot be measured.
bool IsQuarterRotation(const std::string& source, const std::string& reference) {
  unsigned source_x = 0;
  unsigned source_y = 0;
  unsigned thumb_x = 0;
  unsigned thumb_y = 0;
  if (!GetImageResolution(source, source_x, source_y)) return false;
  if (!GetImageResolution(reference, thumb_x, thumb_y)) return false;
  return (source_x > source_y && thumb_x < thumb_y) || (source_x < source_y && thumb_x > thumb_y);
}

// Renders the source in the two candidate rotations and returns the closer one: `second` when its
// difference is strictly smaller, otherwise `first`. 0 when a rendering fails.
int ChooseRotation(const Reference& reference, const std::string& source,
                   const std::string& thumb_dir, int first, int second) {
  for (const int angle : {first, second}) {
    if (!MakeRotatedThumbRequest(*reference.profile,
                                 {angle, source, RotationTrialName(angle), thumb_dir})) {
      return 0;
    }
  }
  const auto difference = [&](int angle) {
    return CompareImagesMAE(thumb_dir + "/" + RotationTrialName(angle), reference.thumbnail.path);
  };
  const int second_difference = difference(second);
  const int first_difference = difference(first);
  return second_difference < first_difference ? second : first;
}

int Detect(const ThumbJob& job, const std::string& source, const std::string& thumb_dir) {
  const std::optional<Reference> reference = FindReference(*job.profiles, thumb_dir);
  if (!reference) return 0;
  return IsQuarterRotation(source, reference->thumbnail.path)
             ? ChooseRotation(*reference, source, thumb_dir, 90, 270)
             : ChooseRotation(*reference, source, thumb_dir, 0, 180);
}

// The whole-number part of a line such as "1234.56 (0.0188)". Text other than a number counts as 0.
int ParseDifference(std::string_view line) {
  const std::size_t space = line.find(' ');
  if (space == std::string_view::npos) return kNotMeasured;
  std::string_view number = line.substr(0, space);
  return process::TakeInteger(number).value_or(0);
}

}  // namespace

int DetectRawRotation(const ThumbJob& job, const std::string& source_path,
                      const std::string& thumb_dir) {
  // Where this fails, the renderings fail too.
  static_cast<void>(checkCreateDir(thumb_dir));
  const int angle = Detect(job, source_path, thumb_dir);
  if (!RemoveFilesByPattern(thumb_dir, kRotationTrialPattern)) {
    AppLogError(kErrorLevel, "%s:%d Failed to remove files by pattern [%s/%s]", kSource,
                kCleanUpFailedLine, thumb_dir.c_str(), kRotationTrialPattern);
  }
  return angle;
}

int CompareImagesMAE(const std::string& image_path, const std::string& reference_path) {
  FILE* stream = KLIBCPopen(paths::kCompare, "rE", "-metric", "MAE", image_path.c_str(),
                            reference_path.c_str(), "null:", nullptr);
  if (stream == nullptr) {
    syslog(LOG_ERR, "%s:%d [Error] KLIBCPopen: %s -metric MAE %s %s null:", kSource,
           kCompareFailedLine, paths::kCompare, image_path.c_str(), reference_path.c_str());
    return kNotMeasured;
  }
  const std::optional<std::string> line = process::StreamReader(stream).ReadLine(kLongestLine);
  const int difference = line ? ParseDifference(*line) : kNotMeasured;
  KLIBCPclose(stream);
  return difference;
}

}  // namespace keldo
