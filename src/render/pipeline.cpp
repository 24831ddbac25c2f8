#include "render/pipeline.h"

#include <fcntl.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <string_view>

#include "platform/file_types.h"
#include "platform/index_ipc.h"
#include "platform/process.h"
#include "platform/text.h"
#include "render/convert_command.h"
#include "thumbs/metadata_names.h"
#include "thumbs/paths.h"
#include "util/handles.h"
#include "util/path.h"

namespace keldo {
namespace {

constexpr const char* kSource = "keldomk_photo_thumb";
// The box for which the fast decoder is worth its intermediate file.
constexpr int kPrescaleBox = 1280;

// Runs djpeg at 1/2^shift of the photo's size; it writes a bitmap and the embedded ICC profile.
bool RunDjpeg(const std::string& photo, int shift, const std::string& bitmap,
              const std::string& icc) {
  const std::string scale = "1/" + std::to_string(1 << shift);
  KELDOUtils::ProcessRunner runner(paths::kDjpeg, paths::kDjpeg);
  runner.addArguments("-scale", scale.c_str(), "-dct", "fast", "-fast", "-onepass", "-bmp",
                      "-outfile", bitmap.c_str());
  runner.addArguments("-icc", icc.c_str(), photo.c_str());
  return runner.run(true, false) == 0;
}

bool HasPrescaleBox(const ThumbRequest& request) {
  return request.width == kPrescaleBox && request.height == kPrescaleBox;
}

bool IsJpegPath(const std::string& path) {
  return keldoindexutils::DoesJpeg(keldoindexutils::GetFileExtension(path));
}

// Renders into the temporaries, by way of djpeg where that pays.
bool Render(ThumbRequestList& list, const std::string& source) {
  const ThumbRequest& first = list.front();
  if (!HasPrescaleBox(first) || !IsJpegPath(source)) return RunConvertPlain(list, source);

  keldoindexutils::MediaInfo media;
  // A JPEG that the index cannot measure is not worth a converter run.
  if (keldoindexutils::ipc::KELDOIDX_GetMediaInfo(source.c_str(), media) == -1) return false;
  if (PrescaleShift(first.width, first.height, media) < 1) return RunConvertPlain(list, source);
  return ConvertViaDjpeg(list, media);
}

std::string InSameDirectory(const std::string& path, std::string_view name) {
  return KELDOUtils::GetPathDirName(path) + "/" + std::string(name);
}

}  // namespace

bool CreatePhotoThumbnails(ThumbRequestList& list) {
  if (list.empty()) return true;
  const std::string source = FirstSourcePath(list);
  KLIBCFileRecord record{};
  if (!StatSource(source, record)) {
    syslog(LOG_ERR, "%s:%d [Error] failed to stat file: %s", kSource, 122, source.c_str());
    return false;
  }
  if (!S_ISREG(record.st.st_mode)) {
    syslog(LOG_ERR, "%s:%d [Error] not a regular file: %s", kSource, 126, source.c_str());
    return false;
  }
  std::sort(list.begin(), list.end(), CompareRequestWidth);
  if (!Render(list, source)) return false;
  return CommitThumbnails(list, source, record.st.st_blocks, record.st.st_size);
}

void AddThumbRequest(ThumbRequestList& list, ThumbRequest& request) {
  request.tempPath = MakeTempPath(request.destPath);
  list.push_back(request);
}

std::string FirstSourcePath(const ThumbRequestList& list) {
  return list.empty() ? std::string() : list.front().sourcePath;
}

std::string MakeTempPath(const std::string& path) {
  const std::string extension = KELDOUtils::GetPathExt(path);
  std::string name = InSameDirectory(path, kTemporaryTemplate);
  const UniqueFd reserved(mkostemp(name.data(), O_CLOEXEC));
  if (!reserved.valid()) return InSameDirectory(path, kTemporaryTemplate);
  // Only the name is wanted: the converter creates the file itself.
  unlink(name.c_str());
  return extension.empty() ? name : name + "." + extension;
}

std::string MakeIccPath(const std::string& path) {
  return InSameDirectory(path, kIccProfileName);
}

int PrescaleShift(int width, int height, const keldoindexutils::MediaInfo& media) {
  for (const int shift : {3, 2, 1}) {
    if (media.resolution_x() >> shift >= width && media.resolution_y() >> shift >= height) {
      return shift;
    }
  }
  return 0;
}

bool ConvertViaDjpeg(ThumbRequestList& list, const keldoindexutils::MediaInfo& media) {
  const ThumbRequest first = list.at(0);
  // The bitmap gets the thumbnail's extension, ".jpg"; the converter looks at the content.
  const std::string bitmap = MakeTempPath(first.destPath);
  const std::string icc = MakeIccPath(first.destPath);
  const std::string photo = FirstSourcePath(list);
  // A bitmap has no orientation tag, so the photo's is applied by hand.
  ApplyPhotoRotation(list, media);
  const int shift = PrescaleShift(first.width, first.height, media);
  const bool done = RunDjpeg(photo, shift, bitmap, icc) && RunConvert(list, bitmap, icc);
  unlink(bitmap.c_str());
  unlink(icc.c_str());
  if (done) return true;

  // Now the converter reads the photo itself, to which the rotation above must not be applied.
  for (ThumbRequest& request : list) {
    request.flop = false;
    request.rotate = 0;
  }
  return RunConvertPlain(list, photo);
}

bool CompareRequestWidth(const ThumbRequest& a, const ThumbRequest& b) {
  return a.width > b.width;
}

void RemoveThumbFiles(const ThumbProfile& profile, const std::string& ea_dir) {
  for (const std::string& name : {profile.filename(), profile.eaFilename()}) {
    const std::string path = JoinPath(ea_dir, name);
    unlink(path.c_str());
    const std::string marker = MarkerOf(path);
    if (!marker.empty()) unlink(marker.c_str());
  }
}

void MarkThumbFailed(const ThumbProfile& profile, const std::string& ea_dir) {
  RemoveThumbFiles(profile, ea_dir);
  const std::string marker = MarkerOf(ea_dir + "/" + profile.eaFilename());
  if (marker.empty()) return;
  // Only the marker's existence matters.
  const UniqueFd created(open(marker.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0777));
}

}  // namespace keldo
