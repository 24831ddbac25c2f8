#include "thumbs/keldomk_util.h"

#include <sys/stat.h>
#include <syslog.h>

#include <vector>

#include "platform/ea_dir.h"
#include "thumbs/keldomk_ipc.h"
#include "util/path.h"

namespace keldo {
namespace {

constexpr std::size_t kPathBufferSize = 4096;
constexpr int kVideoDatabase = 1;
// A H.264 film from this bit rate on is too heavy for the players it is meant for: such a video is
// converted again.
constexpr int kHighestFilmBitrate = 4499999;

// The kinds in the order in which names are looked up.
constexpr std::array<int, 6> kLookupOrder = {THUMB_S, THUMB_SM, THUMB_M,
                                             THUMB_B, THUMB_L,  THUMB_XL};

const std::vector<std::string>& FilmNames() {
  static const std::vector<std::string> names = {
      "KELDOPHOTO_FILM_H.mp4",        "KELDOPHOTO:FILM_H.mp4",      "KELDOPHOTO_FILM_M.mp4",
      "KELDOPHOTO:FILM_M.mp4",        "KELDOPHOTO_FILM_L.mp4",      "KELDOPHOTO:FILM_L.mp4",
      "KELDOPHOTO_FILM_MOBILE.mp4",   "KELDOPHOTO:FILM_MOBILE.mp4", "KELDOPHOTO_FILM_MOBILE_IPHONE",
      "KELDOPHOTO:FILM_MOBILE_IPHONE"};
  return names;
}

bool IsH264FilmLightEnough(const std::string& source_path) {
  keldoindexutils::MediaInfo media;
  if (GetMediaFromPluginDb(kVideoDatabase, source_path, media) != 0) {
    syslog(LOG_ERR, "%s:%d fail to get media from plugin db: %s", "keldomk_util", 143,
           source_path.c_str());
    return false;
  }
  return media.frame_bitrate() <= kHighestFilmBitrate;
}

}  // namespace

const std::array<ThumbKindInfo, 6> kThumbKindTable = {{
    {THUMB_S, "120x120", "KELDOPHOTO_THUMB_S.jpg", "KELDOPHOTO:THUMB_S.jpg"},
    {THUMB_M, "320x320", "KELDOPHOTO_THUMB_M.jpg", "KELDOPHOTO:THUMB_M.jpg"},
    {THUMB_B, "640x640", "KELDOPHOTO_THUMB_B.jpg", "KELDOPHOTO:THUMB_B.jpg"},
    {THUMB_L, "800x800", "KELDOPHOTO_THUMB_L.jpg", "KELDOPHOTO:THUMB_L.jpg"},
    {THUMB_XL, "1280x1280", "KELDOPHOTO_THUMB_XL.jpg", "KELDOPHOTO:THUMB_XL.jpg"},
    {THUMB_SM, "240x240", "KELDOPHOTO_THUMB_SM.jpg", "KELDOPHOTO:THUMB_SM.jpg"},
}};

const char* BoxOfKind(int kind) {
  if (kind < 0) {
    syslog(LOG_ERR, "%s:%d Bad parameters.", "keldomk_util", 52);
    return nullptr;
  }
  const auto row = static_cast<std::size_t>(kind);
  return row < kThumbKindTable.size() ? kThumbKindTable[row].box : nullptr;
}

bool IsKindWanted(const std::string& file_name, ThumbSizeMask mask) {
  for (const int kind : kLookupOrder) {
    const ThumbKindInfo& info = kThumbKindTable[static_cast<std::size_t>(kind)];
    if (file_name == info.underscore_name || file_name == info.colon_name) {
      return ((mask >> kind) & 1) != 0;
    }
  }
  syslog(LOG_ERR, "%s:%d [Error] invalid thumb filename: %s", "keldomk_util", 118,
         file_name.c_str());
  return false;
}

bool GetMetadataDir(const std::string& source_path, int log_line, std::string& directory) {
  std::array<char, kPathBufferSize> buffer{};
  if (KELDOEADirPath(source_path.c_str(), buffer.data(), buffer.size()) != 0) {
    syslog(LOG_ERR, "%s:%d KELDOEADirPath error [0x%04X %s:%d] on %s", "keldomk_util", log_line,
           static_cast<unsigned>(KLIBCErrGet()), KLIBCErrorGetFile(), KLIBCErrorGetLine(),
           source_path.c_str());
    return false;
  }
  directory = buffer.data();
  return true;
}

bool IsThumbnailOutdated(const struct stat& source, const struct stat& thumbnail) {
  return source.st_mtime > thumbnail.st_mtime || thumbnail.st_size == 0;
}

bool NeedsThumbnail(const std::string& source_path, const std::string& file_name) {
  struct stat source {};
  if (stat(source_path.c_str(), &source) != 0) {
    syslog(LOG_ERR, "%s:%d Fail to get %s file information", "keldomk_util", 69,
           source_path.c_str());
    return false;
  }
  std::string directory;
  if (!GetMetadataDir(source_path, 74, directory)) return false;

  struct stat thumbnail {};
  const std::string path = CutToPathBuffer(JoinPath(directory, file_name));
  if (stat(path.c_str(), &thumbnail) != 0) return true;
  return IsThumbnailOutdated(source, thumbnail);
}

bool AreWantedThumbnailsPresent(const char* source_path, ThumbSizeMask mask) {
  if (source_path == nullptr) {
    syslog(LOG_ERR, "%s:%d Bad parameters.", "keldomk_util", 232);
    return false;
  }
  std::string directory;
  if (!GetMetadataDir(source_path, 238, directory)) return false;

  bool all_present = true;
  for (const ThumbKindInfo& kind : kThumbKindTable) {
    if (!IsKindWanted(kind.underscore_name, mask)) continue;
    const std::string found =
        GetFileNameEAFileExist(directory, kind.underscore_name, kind.colon_name);
    if (found.empty()) {
      all_present = false;
    } else if (NeedsThumbnail(source_path, found)) {
      RemoveEAFile(directory, kind.underscore_name, kind.colon_name);
      all_present = false;
    }
  }
  return all_present;
}

int HasConvertedFilms(const char* source_path) {
  if (source_path == nullptr) {
    syslog(LOG_ERR, "%s:%d Bad parameters.", "keldomk_util", 189);
    return -1;
  }
  std::string directory;
  if (!GetMetadataDir(source_path, 194, directory)) return 0;
  if (IsEAFileExist(directory, FilmNames())) return 1;
  if (IsEAFileExist(directory, {"KELDOPHOTO_FILM.flv", "KELDOPHOTO:FILM.flv"})) return 1;
  if (IsEAFileExist(directory, {"KELDOPHOTO_FILM_H264.mp4", "KELDOPHOTO:FILM_H264.mp4"})) {
    return IsH264FilmLightEnough(source_path) ? 1 : 0;
  }
  return 0;
}

}  // namespace keldo
