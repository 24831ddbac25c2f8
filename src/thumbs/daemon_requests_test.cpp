#include "thumbs/daemon_requests.h"

#include <gtest/gtest.h>
#include <json/reader.h>
#include <json/value.h>
#include <json/writer.h>
#include <syslog.h>

#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "fakes/core_test.h"

namespace keldo {
namespace {

using keldoindexutils::MediaInfo;
using testing::fake;

Json::Value FromText(const std::string& text) {
  Json::CharReaderBuilder builder;
  const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
  Json::Value value;
  std::string errors;
  if (!reader->parse(text.data(), text.data() + text.size(), &value, &errors)) {
    throw std::runtime_error(errors);
  }
  return value;
}

class IpcTest : public testing::CoreTest {
 protected:
  static void Reply(const std::string& text) {
    fake().on_packet = [value = FromText(text)](const Json::Value&) { return value; };
  }

  // One packet went out, to the daemon, and it was this.
  static void ExpectSent(const std::string& text) {
    ASSERT_EQ(fake().packets.size(), 1u);
    const testing::PacketRequest& packet = fake().packets.front();
    EXPECT_EQ(packet.value, FromText(text)) << packet.value;
    EXPECT_EQ(packet.socket_path, "/tmp/keldoindexplugind_sock");
    EXPECT_EQ(packet.flags, -1);
    EXPECT_EQ(packet.timeout_seconds, 1800);
  }

  static void ExpectFailure(int line) {
    ExpectOneLog(LOG_ERR, "keldomk_ipc:" + std::to_string(line) + " fail");
  }
};

// Replies that mean that a request failed.
const std::vector<std::string>& FailedReplies() {
  static const std::vector<std::string> replies = {
      R"({"success": false, "version": 3, "result": true, "media": {"path": "x"}})",
      R"({"version": 3, "result": true, "media": {"path": "x"}})",
      R"({"success": null})",
      R"({"success": "true", "version": 3, "result": true})",
      R"({"success": {}})",
      R"([{"success": true}])",
      R"("success")",
      "true",
      "1",
      "null"};
  return replies;
}

TEST_F(IpcTest, IndexVersionIsAskedForAPath) {
  Reply(R"({"success": true, "version": 7})");
  EXPECT_EQ(GetIndexVersion("/v/a.jpg"), 7);
  ExpectSent(R"({"command": "GET_INDEX_VERSION", "path": "/v/a.jpg"})");
  ExpectNoLog();
}

TEST_F(IpcTest, WithoutADaemonThereIsNoVersion) {
  EXPECT_EQ(GetIndexVersion("/v/a.jpg"), -1);
  ExpectSent(R"({"command": "GET_INDEX_VERSION", "path": "/v/a.jpg"})");
  ExpectFailure(59);
}

TEST_F(IpcTest, AMissingVersionIsZero) {
  Reply(R"({"success": true})");
  EXPECT_EQ(GetIndexVersion("/v/a.jpg"), 0);
  ExpectNoLog();
}

TEST_F(IpcTest, AVersionThatIsNotAnIntegerIsNotUsed) {
  for (const char* version : {"\"3\"", "{}", "[3]", "99999999999", "1e300"}) {
    Reply(std::string(R"({"success": true, "version": )") + version + "}");
    EXPECT_EQ(GetIndexVersion("/v/a.jpg"), -1) << version;
  }
}

TEST_F(IpcTest, NegativeVersionsAreReturnedUnchanged) {
  Reply(R"({"success": true, "version": -5})");
  EXPECT_EQ(GetIndexVersion("/v/a.jpg"), -5);
}

TEST_F(IpcTest, AFailedReplyGivesNoVersion) {
  for (const std::string& reply : FailedReplies()) {
    fake().Reset();
    Reply(reply);
    EXPECT_EQ(GetIndexVersion("/v/a.jpg"), -1) << reply;
    ExpectFailure(59);
  }
}

TEST_F(IpcTest, PathsAreSentByteForByte) {
  const std::string path = "/v/\"q\"\\ \n\t%s \xc3\xa4 \xff.jpg";
  Reply(R"({"success": true, "version": 1})");
  EXPECT_EQ(GetIndexVersion(path), 1);
  ASSERT_EQ(fake().packets.size(), 1u);
  EXPECT_EQ(fake().packets[0].value["path"].asString(), path);
}

TEST_F(IpcTest, FinishedPhotosArePosted) {
  Reply(R"({"success": true})");
  PostPhotoConvert("/v/a.jpg");
  ExpectSent(R"({"command": "POST_PHOTO_CONVERT", "path": "/v/a.jpg"})");
  ExpectNoLog();
}

TEST_F(IpcTest, AFailedPhotoPostIsLogged) {
  PostPhotoConvert("/v/a.jpg");
  ExpectFailure(139);
  for (const std::string& reply : FailedReplies()) {
    fake().Reset();
    Reply(reply);
    PostPhotoConvert("/v/a.jpg");
    ExpectFailure(139);
  }
}

TEST_F(IpcTest, FinishedVideosArePosted) {
  Reply(R"({"success": true})");
  PostVideoConvert("/v/a.mp4");
  ExpectSent(R"({"command": "POST_VIDEO_CONVERT", "path": "/v/a.mp4"})");
  ExpectNoLog();
}

TEST_F(IpcTest, AFailedVideoPostIsLogged) {
  PostVideoConvert("/v/a.mp4");
  ExpectFailure(159);
}

TEST_F(IpcTest, PhotoConversionIsAskedFor) {
  Reply(R"({"success": true, "result": true})");
  EXPECT_TRUE(IsPhotoConversionOn());
  ExpectSent(R"({"command": "IS_CONVERT_PHOTO"})");
  Reply(R"({"success": true, "result": false})");
  EXPECT_FALSE(IsPhotoConversionOn());
  ExpectNoLog();
}

TEST_F(IpcTest, PhotoConversionIsOffOnFailure) {
  for (const std::string& reply : FailedReplies()) {
    fake().Reset();
    Reply(reply);
    EXPECT_FALSE(IsPhotoConversionOn()) << reply;
    ExpectFailure(112);
  }
}

TEST_F(IpcTest, VideoConversionIsAskedFor) {
  Reply(R"({"success": true, "result": true})");
  EXPECT_TRUE(IsVideoConversionOn());
  ExpectSent(R"({"command": "IS_CONVERT_VIDEO"})");
  Reply(R"({"success": true, "result": false})");
  EXPECT_FALSE(IsVideoConversionOn());
  ExpectNoLog();
}

TEST_F(IpcTest, VideoConversionIsOffOnFailure) {
  EXPECT_FALSE(IsVideoConversionOn());
  ExpectFailure(85);
}

TEST_F(IpcTest, AResultThatIsMissingOrNotABooleanMeansOff) {
  for (const char* reply : {R"({"success": true})", R"({"success": true, "result": "true"})",
                            R"({"success": true, "result": {}})"}) {
    Reply(reply);
    EXPECT_FALSE(IsPhotoConversionOn()) << reply;
    EXPECT_FALSE(IsVideoConversionOn()) << reply;
  }
}

TEST_F(IpcTest, AMediaRecordIsFetched) {
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

TEST_F(IpcTest, TheKindOfRecordIsSent) {
  Reply(R"({"success": true})");
  MediaInfo media;
  EXPECT_EQ(GetMediaFromPluginDb(-2, "", media), 0);
  ExpectSent(R"({"command": "GET_MEDIA_FROM_PLUGIN_DB", "path": "", "type": -2})");
}

TEST_F(IpcTest, AReplyWithoutAMediaObjectLeavesTheRecord) {
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

TEST_F(IpcTest, AFailedMediaRequestLeavesTheRecord) {
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
}  // namespace keldo
