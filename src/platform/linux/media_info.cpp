#include "platform/media_info.h"

#include "media/image_header.h"

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
