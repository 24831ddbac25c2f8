#include "fakes/daemon_requests_test.h"

#include "indexer/indexer.h"

namespace keldo::testing {
namespace {

using keldoindexutils::MediaInfo;

TEST_F(DaemonRequestsTest, FinishedVideosArePosted) {
  Reply(R"({"success": true})");
  PostVideoConvert("/v/a.mp4");
  ExpectSent(R"({"command": "POST_VIDEO_CONVERT", "path": "/v/a.mp4"})");
  ExpectNoLog();
}

TEST_F(DaemonRequestsTest, AFailedVideoPostIsLogged) {
  PostVideoConvert("/v/a.mp4");
  ExpectFailure(159);
}

TEST_F(DaemonRequestsTest, PhotoConversionIsOffOnFailure) {
  for (const std::string& reply : FailedReplies()) {
    fake().Reset();
    Reply(reply);
    EXPECT_FALSE(IsPhotoConversionOn()) << reply;
    ExpectFailure(112);
  }
}

TEST_F(DaemonRequestsTest, ConversionIsAskedFor) {
  const auto expect = [](bool (*ask)(), const std::string& command, bool on) {
    fake().Reset();
    Reply(std::string(R"({"success": true, "result": )") + (on ? "true}" : "false}"));
    EXPECT_EQ(ask(), on) << command;
    ExpectSent(R"({"command": ")" + command + R"("})");
    ExpectNoLog();
  };
  for (const bool on : {true, false}) {
    expect(IsPhotoConversionOn, "IS_CONVERT_PHOTO", on);
    expect(IsVideoConversionOn, "IS_CONVERT_VIDEO", on);
  }
}

TEST_F(DaemonRequestsTest, VideoConversionIsOffOnFailure) {
  EXPECT_FALSE(IsVideoConversionOn());
  ExpectFailure(85);
}

TEST_F(DaemonRequestsTest, AResultThatIsMissingOrNotABooleanMeansOff) {
  for (const char* reply : {R"({"success": true})", R"({"success": true, "result": "true"})",
                            R"({"success": true, "result": {}})"}) {
    Reply(reply);
    EXPECT_FALSE(IsPhotoConversionOn()) << reply;
    EXPECT_FALSE(IsVideoConversionOn()) << reply;
  }
}

TEST_F(DaemonRequestsTest, AMediaRecordIsFetched) {
  Reply(R"({"success": true, "media": {"path": "/v/b.mp4", "frame_bitrate": 4500000,
            "resolution_x": 1920, "resolution_y": 1080}})");
  MediaInfo media;
  EXPECT_EQ(GetMediaFromPluginDb(1, "/v/a.mp4", media), 0);
  ExpectSent(R"({"command": "GET_MEDIA_FROM_PLUGIN_DB", "path": "/v/a.mp4", "type": 1})");
  EXPECT_EQ(media.path(), "/v/b.mp4");
  EXPECT_EQ(media.frame_bitrate(), 4500000);
  EXPECT_EQ(media.resolution_x(), 1920);
  EXPECT_EQ(media.resolution_y(), 1080);
  ExpectNoLog();
}

TEST_F(DaemonRequestsTest, TheKindOfRecordIsSent) {
  Reply(R"({"success": true})");
  MediaInfo media;
  EXPECT_EQ(GetMediaFromPluginDb(-2, "", media), 0);
  ExpectSent(R"({"command": "GET_MEDIA_FROM_PLUGIN_DB", "path": "", "type": -2})");
}

TEST_F(DaemonRequestsTest, AReplyWithoutAMediaObjectLeavesTheRecord) {
  for (const char* reply : {R"({"success": true})", R"({"success": true, "media": 3})",
                            R"({"success": true, "media": ["x"]})"}) {
    Reply(reply);
    MediaInfo media;
    media.frame_bitrate(9);
    EXPECT_EQ(GetMediaFromPluginDb(1, "/v/a.mp4", media), 0) << reply;
    EXPECT_EQ(media.frame_bitrate(), 9) << reply;
  }
  ExpectNoLog();
}

TEST_F(DaemonRequestsTest, AFailedMediaRequestLeavesTheRecord) {
  for (const std::string& reply : FailedReplies()) {
    fake().Reset();
    Reply(reply);
    MediaInfo media;
    EXPECT_EQ(GetMediaFromPluginDb(1, "/v/a.mp4", media), -1) << reply;
    EXPECT_EQ(media.path(), "") << reply;
    ExpectFailure(32);
  }
}

}  // namespace
}  // namespace keldo::testing
