// The media index and the plug-in daemon of the fake platform.
#include "fakes/fake_platform.h"
#include "platform/index_ipc.h"

using keldo::testing::fake;

namespace {

using MaskTable = std::map<std::pair<std::string, int>, int>;

int FindMask(const MaskTable& masks, const char* path, int type) {
  const auto found = masks.find({path, type});
  return found == masks.end() ? fake().default_mask : found->second;
}

}  // namespace

namespace keldoindexutils {

void MediaInfo::SetByJson(const Json::Value& media) {
  if (!media.isObject()) return;
  if (media["path"].isString()) path_ = media["path"].asString();
  if (media["resolution_x"].isInt()) resolution_x_ = media["resolution_x"].asInt();
  if (media["resolution_y"].isInt()) resolution_y_ = media["resolution_y"].asInt();
  if (media["photo_rotation"].isInt()) photo_rotation_ = media["photo_rotation"].asInt();
  if (media["frame_bitrate"].isInt()) frame_bitrate_ = media["frame_bitrate"].asInt();
}

bool KELDOIndexImgResGet(const std::string& path, unsigned& width, unsigned& height) {
  if (fake().Enter("KELDOIndexImgResGet", path)) return false;
  const auto found = fake().image_sizes.find(path);
  if (found == fake().image_sizes.end()) return false;
  width = found->second.first;
  height = found->second.second;
  return true;
}

namespace ipc {

int KELDOIDX_GetDirThumbSizeMap(const char* directory, _tag_THUMB_TYPE_ type, int* mask) {
  if (fake().Enter("KELDOIDX_GetDirThumbSizeMap", directory, static_cast<int>(type))) return -1;
  *mask = FindMask(fake().dir_masks, directory, type);
  return 0;
}

int KELDOIDX_GetThumbSizeMap(const char* path, _tag_THUMB_TYPE_ type, int* mask) {
  if (fake().Enter("KELDOIDX_GetThumbSizeMap", path, static_cast<int>(type))) return -1;
  *mask = FindMask(fake().file_masks, path, type);
  return 0;
}

int KELDOIDX_IsVideoNeedConvert(const char* path) {
  if (fake().Enter("KELDOIDX_IsVideoNeedConvert", path)) return 0;
  const auto found = fake().video_need_convert.find(path);
  return found == fake().video_need_convert.end() ? 0 : found->second;
}

int KELDOIDX_GetMediaInfo(const char* path, MediaInfo& info) {
  if (fake().Enter("KELDOIDX_GetMediaInfo", path)) return -1;
  const auto found = fake().media_info.find(path);
  if (found == fake().media_info.end()) return -1;
  info = found->second;
  return 0;
}

int KELDOIDX_IndexConvertAdd(const MediaInfo& source, const MediaInfo& converted,
                             const Json::Value& extra) {
  fake().convert_reports.push_back({source, converted, extra});
  return fake().Enter("KELDOIDX_IndexConvertAdd", source.path(), converted.path()) ? -1 : 0;
}

int AutoSendRecvPacket(const char* socket_path, int flags, Json::Value& value,
                       int timeout_seconds) {
  fake().packets.push_back({socket_path, flags, value, timeout_seconds});
  const std::string command =
      value.isObject() && value["command"].isString() ? value["command"].asString() : "?";
  std::optional<Json::Value> reply;
  if (!fake().Enter("AutoSendRecvPacket", command) && fake().on_packet) {
    reply = fake().on_packet(fake().packets.back().value);
  }
  value = reply.value_or(Json::Value(Json::objectValue));
  return reply ? 0 : -1;
}

}  // namespace ipc
}  // namespace keldoindexutils
