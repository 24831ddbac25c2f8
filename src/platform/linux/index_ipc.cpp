#include "platform/index_ipc.h"

#include <syslog.h>

#include <string>
#include <string_view>

#include "index/index_database.h"
#include "media/image_header.h"
#include "platform/file_types.h"
#include "platform/text.h"

namespace keldoindexutils::ipc {
namespace {

constexpr int kUnreadableImageLine = 61;

using keldo::index::Measured;
using keldo::index::NoteResolution;
using keldo::index::WantedKinds;
using keldo::media::ReadImageHeader;

int Tell(const std::string& directory, _tag_THUMB_TYPE_ type, int* mask) {
  if (mask == nullptr || (type != THUMB_TYPE_PHOTO && type != THUMB_TYPE_VIDEO)) return -1;
  *mask = WantedKinds(directory, type);
  return 0;
}

Measured MeasuredOf(const MediaInfo& info) {
  return {.path = info.path(), .width = info.resolution_x(), .height = info.resolution_y()};
}

}  // namespace

int KELDOIDX_GetDirThumbSizeMap(const char* directory, _tag_THUMB_TYPE_ type, int* mask) {
  return directory == nullptr ? -1 : Tell(directory, type, mask);
}

int KELDOIDX_GetThumbSizeMap(const char* path, _tag_THUMB_TYPE_ type, int* mask) {
  return path == nullptr ? -1 : Tell(KELDOUtils::GetPathDirName(path), type, mask);
}

int KELDOIDX_IsVideoNeedConvert(const char* path) {
  return path != nullptr && DoesVideoOnWebFile(path) ? 1 : 0;
}

int KELDOIDX_GetMediaInfo(const char* path, MediaInfo& info) {
  if (path == nullptr) return -1;
  const auto header = ReadImageHeader(path);
  if (!header) {
    syslog(LOG_WARNING, "%s:%d [Warning] cannot be read as an image: %s", "index_ipc",
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
