#include "thumbs/thumb_state.h"

#include <syslog.h>

#include <array>
#include <optional>

#include "platform/ea_dir.h"
#include "platform/file.h"
#include "platform/index_ipc.h"
#include "util/path.h"

namespace keldo {
namespace {

// The sources under which these rules log.
constexpr const char* kKindSource = "keldomk_util";
constexpr const char* kStatusSource = "keldomk_thumb_status";
constexpr std::size_t kPathBufferSize = 4096;

bool IsUpToDate(const FoundThumbnail& found, const std::string& source_path) {
  struct stat source {};
  return stat(source_path.c_str(), &source) == 0 && !IsThumbnailOutdated(source, found.status);
}

// True when a phase has a thumbnail to be made. `photo` is null where the photo is gone.
bool IsPhaseDue(const ThumbProfileList& profiles, int phase, const struct stat* photo,
                const std::string& ea_dir) {
  for (std::size_t i = 0; i < profiles.count(phase); ++i) {
    const std::optional<FoundThumbnail> found = FindThumbnail(*profiles.at(i, phase), ea_dir);
    if (!found || IsStub(found->status)) return true;
    if (photo != nullptr && IsThumbnailOutdated(*photo, found->status)) return true;
  }
  return false;
}

}  // namespace

bool IsThumbnailOutdated(const struct stat& source, const struct stat& thumbnail) {
  return source.st_mtime > thumbnail.st_mtime || thumbnail.st_size == 0;
}

bool IsStub(const struct stat& thumbnail) {
  return thumbnail.st_size < kLeastThumbnailBytes;
}

bool IsThumbUpToDate(const ThumbProfile& profile, const std::string& source_path,
                     const std::string& ea_dir) {
  const std::optional<FoundThumbnail> found = FindThumbnail(profile, ea_dir);
  return found && IsUpToDate(*found, source_path);
}

bool NeedsNoRendering(const ThumbProfile& profile, const std::string& source_path,
                      const std::string& ea_dir) {
  const std::optional<FoundThumbnail> found = FindThumbnail(profile, ea_dir);
  return found && !IsStub(found->status) && IsUpToDate(*found, source_path);
}

int FirstPhaseDue(const ThumbProfileList& profiles, const std::string& photo_path,
                  const std::string& ea_dir) {
  struct stat status {};
  const struct stat* photo = stat(photo_path.c_str(), &status) == 0 ? &status : nullptr;
  for (const int phase : {0, 1, 2}) {
    if (IsPhaseDue(profiles, phase, photo, ea_dir)) return phase;
  }
  return kNoPhaseDue;
}

PhotoThumbStatus GetPhotoThumbStatus(const std::string& source_path, ThumbSizeMask mask) {
  PhotoThumbStatus status;
  if (!keldoindexutils::stat::DoesFileExist(source_path)) return status;

  std::array<char, kPathBufferSize> directory{};
  if (KELDOEADirPath(source_path.c_str(), directory.data(), directory.size()) != 0) {
    syslog(LOG_ERR, "%s:%d [Error] get eadir: %s", kStatusSource, 92, source_path.c_str());
    return status;
  }
  if (mask == kMaskFromIndex && keldoindexutils::ipc::KELDOIDX_GetThumbSizeMap(
                                    source_path.c_str(), THUMB_TYPE_PHOTO, &mask) < 0) {
    syslog(LOG_ERR, "%s:%d [Error] get thumb size map: %s", kStatusSource, 99, source_path.c_str());
    return status;
  }
  for (const ThumbKindInfo& kind : kThumbKindTable) {
    if (!Wants(mask, kind.kind)) continue;
    const std::string found =
        GetFileNameEAFileExist(directory.data(), kind.underscore_name, kind.colon_name);
    if (found.empty() || NeedsThumbnail(source_path, found)) {
      ++status.missing;
    } else {
      ++status.present;
    }
  }
  return status;
}

bool NeedsThumbnail(const std::string& source_path, const std::string& file_name) {
  struct stat source {};
  if (stat(source_path.c_str(), &source) != 0) {
    syslog(LOG_ERR, "%s:%d Fail to get %s file information", kKindSource, 69, source_path.c_str());
    return false;
  }
  std::string directory;
  if (!GetMetadataDir(source_path, 74, directory)) return false;

  struct stat thumbnail {};
  const std::string path = CutToPathBuffer(JoinPath(directory, file_name));
  if (stat(path.c_str(), &thumbnail) != 0) return true;
  return IsThumbnailOutdated(source, thumbnail);
}

bool GetMetadataDir(const std::string& source_path, int log_line, std::string& directory) {
  std::array<char, kPathBufferSize> buffer{};
  if (KELDOEADirPath(source_path.c_str(), buffer.data(), buffer.size()) != 0) {
    syslog(LOG_ERR, "%s:%d KELDOEADirPath error [0x%04X %s:%d] on %s", kKindSource, log_line,
           static_cast<unsigned>(KLIBCErrGet()), KLIBCErrorGetFile(), KLIBCErrorGetLine(),
           source_path.c_str());
    return false;
  }
  directory = buffer.data();
  return true;
}

}  // namespace keldo
