#include <gtest/gtest.h>

#include "platform/index_ipc.h"

namespace {

using keldoindexutils::MediaInfo;

MediaInfo Filled() {
  MediaInfo info;
  info.path("/v/a.jpg");
  info.resolution_x(1);
  info.resolution_y(2);
  info.photo_rotation(3);
  info.frame_bitrate(4);
  return info;
}

void ExpectFilled(const MediaInfo& info) {
  EXPECT_EQ(info.path(), "/v/a.jpg");
  EXPECT_EQ(info.resolution_x(), 1);
  EXPECT_EQ(info.resolution_y(), 2);
  EXPECT_EQ(info.photo_rotation(), 3);
  EXPECT_EQ(info.frame_bitrate(), 4);
}

TEST(MediaInfoSetByJson, ReadsAllMembers) {
  Json::Value media;
  media["path"] = "/v/film.mp4";
  media["resolution_x"] = 1920;
  media["resolution_y"] = 1080;
  media["photo_rotation"] = 6;
  media["frame_bitrate"] = 4500000;
  MediaInfo info;
  info.SetByJson(media);
  EXPECT_EQ(info.path(), "/v/film.mp4");
  EXPECT_EQ(info.resolution_x(), 1920);
  EXPECT_EQ(info.resolution_y(), 1080);
  EXPECT_EQ(info.photo_rotation(), 6);
  EXPECT_EQ(info.frame_bitrate(), 4500000);
}

TEST(MediaInfoSetByJson, KeepsFieldsThatAreAbsent) {
  MediaInfo info = Filled();
  info.SetByJson(Json::Value(Json::objectValue));
  ExpectFilled(info);
}

TEST(MediaInfoSetByJson, KeepsFieldsOfAnotherType) {
  Json::Value media;
  media["path"] = 5;
  media["resolution_x"] = "1920";
  media["resolution_y"] = true;
  media["photo_rotation"] = 6.5;
  media["frame_bitrate"] = Json::Value::Int64{1} << 40;
  MediaInfo info = Filled();
  info.SetByJson(media);
  ExpectFilled(info);
}

TEST(MediaInfoSetByJson, IgnoresAValueThatIsNotAnObject) {
  for (const Json::Value& media :
       {Json::Value(), Json::Value("text"), Json::Value(7), Json::Value(Json::arrayValue)}) {
    MediaInfo info = Filled();
    info.SetByJson(media);
    ExpectFilled(info);
  }
}

}  // namespace
