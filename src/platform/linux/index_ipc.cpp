#include "platform/index_ipc.h"

#include <syslog.h>

#include <string>
#include <string_view>

#include "index/index_database.h"
#include "media/image_header.h"
#include "platform/file_types.h"
#include "platform/text.h"

namespace keldoindexutils {
namespace {

using SetNumber = void (MediaInfo::*)(int);

void TakeNumber(MediaInfo& info, const Json::Value& value, SetNumber set) {
  if (value.isInt()) (info.*set)(value.asInt());
}

}  // namespace

void MediaInfo::SetByJson(const Json::Value& media) {
  if (!media.isObject()) return;
  if (media["path"].isString()) path(media["path"].asString());
  TakeNumber(*this, media["resolution_x"], &MediaInfo::resolution_x);
  TakeNumber(*this, media["resolution_y"], &MediaInfo::resolution_y);
  TakeNumber(*this, media["photo_rotation"], &MediaInfo::photo_rotation);
  TakeNumber(*this, media["frame_bitrate"], &MediaInfo::frame_bitrate);
}

bool KELDOIndexImgResGet(const std::string& path, unsigned& width, unsigned& height) {
  const auto header = keldo::media::ReadImageHeader(path);
  if (!header) return false;
  width = static_cast<unsigned>(header->width);
  height = static_cast<unsigned>(header->height);
  return true;
}

}  // namespace keldoindexutils

namespace keldoindexutils::ipc {
namespace {

constexpr const char* kSource = "index_ipc";
constexpr int kUnreadableImageLine = 61;

using keldo::index::Measured;
using keldo::index::NoteResolution;
using keldo::index::WantedKinds;
using keldo::media::ReadImageHeader;

int FindWantedKinds(const std::string& directory, _tag_THUMB_TYPE_ type, int* mask) {
  if (mask == nullptr || (type != THUMB_TYPE_PHOTO && type != THUMB_TYPE_VIDEO)) return -1;
  *mask = WantedKinds(directory, type);
  return 0;
}

Measured MeasuredOf(const MediaInfo& info) {
  return {.path = info.path(), .width = info.resolution_x(), .height = info.resolution_y()};
}

}  // namespace

int KELDOIDX_GetDirThumbSizeMap(const char* directory, _tag_THUMB_TYPE_ type, int* mask) {
  return directory == nullptr ? -1 : FindWantedKinds(directory, type, mask);
}

int KELDOIDX_GetThumbSizeMap(const char* path, _tag_THUMB_TYPE_ type, int* mask) {
  return path == nullptr ? -1 : FindWantedKinds(KELDOUtils::GetPathDirName(path), type, mask);
}

int KELDOIDX_IsVideoNeedConvert(const char* path) {
  return path != nullptr && DoesVideoOnWebFile(path) ? 1 : 0;
}

int KELDOIDX_GetMediaInfo(const char* path, MediaInfo& info) {
  if (path == nullptr) return -1;
  const auto header = ReadImageHeader(path);
  if (!header) {
    syslog(LOG_WARNING, "%s:%d [Warning] cannot be read as an image: %s", kSource,
           kUnreadableImageLine, path);
    return -1;
  }
  info.path(path);
  info.resolution_x(header->width);
  info.resolution_y(header->height);
  info.photo_rotation(header->orientation);
  return 0;
}

int KELDOIDX_IndexConvertAdd(const MediaInfo& source, const MediaInfo& converted,
                             const Json::Value& /*extra*/) {
  NoteResolution(MeasuredOf(source), MeasuredOf(converted));
  return 0;
}

}  // namespace keldoindexutils::ipc
