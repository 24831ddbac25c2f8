#include "plugind/request.h"

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

namespace keldo::plugind {
namespace {

// An index in memory.
class MemoryStore : public IndexStore {
 public:
  int Version(std::string_view path) override {
    const auto found = versions.find(std::string(path));
    return found == versions.end() ? 0 : found->second;
  }
  bool AddFinished(std::string_view path) override {
    finished.emplace_back(path);
    return writable;
  }
  bool IsConversionOn(_tag_THUMB_TYPE_ type) override {
    return type == THUMB_TYPE_PHOTO ? photos_on : videos_on;
  }
  std::optional<index::MediaRecord> FindMedia(std::string_view path, int database) override {
    asked_database = database;
    if (!media || media->path != path) return std::nullopt;
    return media;
  }

  std::map<std::string, int> versions;
  std::vector<std::string> finished;
  bool writable = true;
  bool photos_on = true;
  bool videos_on = true;
  std::optional<index::MediaRecord> media;
  int asked_database = -99;
};

class RequestTest : public ::testing::Test {
 protected:
  // The reply to a valid request.
  std::string Reply(const std::string& request) {
    const Answer answer = AnswerRequest(request, store_);
    EXPECT_EQ(answer.problem, "") << request;
    return answer.reply;
  }
  // Why a request is refused.
  std::string Refused(const std::string& request) {
    const Answer answer = AnswerRequest(request, store_);
    EXPECT_EQ(answer.reply, R"({"success":false})") << request;
    return answer.problem;
  }

  MemoryStore store_;
};

TEST_F(RequestTest, VersionsAreAnswered) {
  store_.versions["/v/a.jpg"] = 7;
  EXPECT_EQ(Reply(R"({"command":"GET_INDEX_VERSION","path":"/v/a.jpg"})"),
            R"({"success":true,"version":7})");
  EXPECT_EQ(Reply(R"({"command":"GET_INDEX_VERSION","path":"/v/new.jpg"})"),
            R"({"success":true,"version":0})");
}

TEST_F(RequestTest, FinishedPhotosAndVideosAreRecorded) {
  EXPECT_EQ(Reply(R"({"command":"POST_PHOTO_CONVERT","path":"/v/a.jpg"})"), R"({"success":true})");
  EXPECT_EQ(Reply(R"({"path":"/v/b.mp4","command":"POST_VIDEO_CONVERT"})"), R"({"success":true})");
  EXPECT_EQ(store_.finished, (std::vector<std::string>{"/v/a.jpg", "/v/b.mp4"}));
}

TEST_F(RequestTest, ReportsFailureWhenItCannotRecord) {
  store_.writable = false;
  EXPECT_EQ(Reply(R"({"command":"POST_PHOTO_CONVERT","path":"/v/a.jpg"})"), R"({"success":false})");
}

TEST_F(RequestTest, SwitchesAreAnsweredByType) {
  store_.videos_on = false;
  EXPECT_EQ(Reply(R"({"command":"IS_CONVERT_PHOTO"})"), R"({"result":true,"success":true})");
  EXPECT_EQ(Reply(R"({"command":"IS_CONVERT_VIDEO"})"), R"({"result":false,"success":true})");
  store_.videos_on = true;
  store_.photos_on = false;
  EXPECT_EQ(Reply(R"({"command":"IS_CONVERT_PHOTO"})"), R"({"result":false,"success":true})");
  EXPECT_EQ(Reply(R"({"command":"IS_CONVERT_VIDEO"})"), R"({"result":true,"success":true})");
}

TEST_F(RequestTest, MediaRecordsAreAnswered) {
  store_.media = {.path = "/v/b.mp4",
                  .width = 1920,
                  .height = 1080,
                  .orientation = 6,
                  .bit_rate = 4500000,
                  .database = 1};
  EXPECT_EQ(Reply(R"({"command":"GET_MEDIA_FROM_PLUGIN_DB","path":"/v/b.mp4","type":1})"),
            R"({"media":{"frame_bitrate":4500000,"path":"/v/b.mp4","photo_rotation":6,)"
            R"("resolution_x":1920,"resolution_y":1080},"success":true})");
  EXPECT_EQ(store_.asked_database, 1);
}

TEST_F(RequestTest, AnUnknownFileHasNoMediaRecord) {
  EXPECT_EQ(Reply(R"({"command":"GET_MEDIA_FROM_PLUGIN_DB","path":"/v/b.mp4","type":-2})"),
            R"({"success":false})");
  EXPECT_EQ(store_.asked_database, -2);
}

TEST_F(RequestTest, PathsAreBytes) {
  // Bytes that are not UTF-8, escapes, and UTF-8.
  Reply("{\"command\":\"POST_PHOTO_CONVERT\",\"path\":\"/v/\xFF\\n\\\"%s\\\\ \xC3\xA4\"}");
  Reply(R"({"command":"POST_PHOTO_CONVERT","path":"/v/\u00e4 \ud83d\ude00"})");
  EXPECT_EQ(store_.finished,
            (std::vector<std::string>{"/v/\xFF\n\"%s\\ \xC3\xA4", "/v/\xC3\xA4 \xF0\x9F\x98\x80"}));
}

TEST_F(RequestTest, EscapesPathsInRepliesUnlessTheyAreNotUtf8) {
  store_.media.emplace();
  const auto reply = [&](const std::string& path, const std::string& sent) {
    store_.media->path = path;
    return Reply(R"({"command":"GET_MEDIA_FROM_PLUGIN_DB","type":1,"path":")" + sent + "\"}");
  };
  EXPECT_NE(reply("/v/\n\xC3\xA4", "/v/\\n\xC3\xA4").find(R"("path":"/v/\n\u00e4")"),
            std::string::npos);
  EXPECT_NE(reply("/v/\n\xFF", "/v/\\n\xFF").find("\"path\":\"/v/\\n\xFF\""), std::string::npos);
}

TEST_F(RequestTest, RefusesWhatIsNotAJsonObject) {
  const std::string deep(60000, '[');
  for (const std::string& text :
       {std::string(), std::string("{"), std::string("GET_INDEX_VERSION"), std::string("[]"),
        std::string("null"), std::string("7"), std::string("\"command\""), std::string("\0\0", 2),
        std::string(R"({"command":"IS_CONVERT_PHOTO"} x)"),
        std::string(R"({"command":"IS_CONVERT_PHOTO"}{})"),
        std::string(R"({"command":"IS_CONVERT_PHOTO","command":"IS_CONVERT_VIDEO"})"),
        std::string(R"({"path":"\ud800"})"), deep, "{\"a\":" + deep}) {
    EXPECT_EQ(Refused(text), "it is no JSON object");
  }
}

TEST_F(RequestTest, RefusesARequestWithoutACommand) {
  EXPECT_EQ(Refused("{}"), "it has no text \"command\"");
  EXPECT_EQ(Refused(R"({"command":1})"), "it has no text \"command\"");
  EXPECT_EQ(Refused(R"({"command":{"command":"IS_CONVERT_PHOTO"}})"), "it has no text \"command\"");
  EXPECT_EQ(Refused(R"({"command":""})"), "the command \"\" is unknown");
  EXPECT_EQ(Refused(R"({"command":"is_convert_photo"})"),
            "the command \"is_convert_photo\" is unknown");
  EXPECT_EQ(Refused(R"({"command":"IS_CONVERT_PHOTO\u0000"})"),
            "the command \"IS_CONVERT_PHOTO?\" is unknown");
}

TEST_F(RequestTest, QuotesClientTextOnOneLogLine) {
  EXPECT_EQ(Refused("{\"command\":\"a\\nb\xFF\x1b[1m\"}"), "the command \"a?b??[1m\" is unknown");
  EXPECT_EQ(Refused(R"({"command":")" + std::string(5000, 'x') + "\"}"),
            "the command \"" + std::string(40, 'x') + "...\" is unknown");
}

TEST_F(RequestTest, RefusesARelativePath) {
  for (const std::string command : {"GET_INDEX_VERSION", "POST_PHOTO_CONVERT", "POST_VIDEO_CONVERT",
                                    "GET_MEDIA_FROM_PLUGIN_DB"}) {
    const std::string start = R"({"type":1,"command":")" + command + "\"";
    EXPECT_EQ(Refused(start + "}"), "it has no text \"path\"");
    EXPECT_EQ(Refused(start + R"(,"path":null})"), "it has no text \"path\"");
    EXPECT_EQ(Refused(start + R"(,"path":["/v/a.jpg"]})"), "it has no text \"path\"");
    EXPECT_EQ(Refused(start + R"(,"path":""})"), "the path \"\" is not absolute");
    EXPECT_EQ(Refused(start + R"(,"path":"v/a.jpg"})"), "the path \"v/a.jpg\" is not absolute");
    EXPECT_EQ(Refused(start + R"(,"path":"/v\u0000a"})"), "the path holds a zero byte");
    EXPECT_EQ(Refused(start + R"(,"path":"/)" + std::string(4095, 'x') + "\"}"),
              "the path is too long");
  }
  EXPECT_TRUE(store_.finished.empty());
  Reply(R"({"command":"POST_PHOTO_CONVERT","path":"/)" + std::string(4094, 'x') + "\"}");
  EXPECT_EQ(store_.finished.size(), 1U);
}

TEST_F(RequestTest, RefusesAMediaRequestWithoutADatabase) {
  const std::string start = R"({"command":"GET_MEDIA_FROM_PLUGIN_DB","path":"/v/a.jpg")";
  for (const char* type : {"", R"(,"type":"1")", R"(,"type":null)", R"(,"type":true)",
                           R"(,"type":1.5)", R"(,"type":99999999999)"}) {
    EXPECT_EQ(Refused(start + type + "}"), "it has no integer \"type\"") << type;
  }
}

TEST_F(RequestTest, ReportsFailureWhenTheIndexThrows) {
  class ThrowingStore : public MemoryStore {
    int Version(std::string_view /*path*/) override { throw std::runtime_error("broken"); }
  } store;
  const Answer answer = AnswerRequest(R"({"command":"GET_INDEX_VERSION","path":"/a"})", store);
  EXPECT_EQ(answer.reply, R"({"success":false})");
  EXPECT_EQ(answer.problem, "broken");
}

}  // namespace
}  // namespace keldo::plugind
