// The conversation with the plug-in daemon: the requests, and every way in which a reply can be
// wrong.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <json/json.h>

#include "e2e/fixtures.h"

namespace keldo::testing {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Not;

const LogLine kVersionFailed = ErrorLine("keldomk_ipc:59 fail");
const LogLine kPostFailed = ErrorLine("keldomk_ipc:139 fail");

TEST(DaemonTest, MissingDaemonIsLoggedAndHarmless) {
  Sandbox box;
  box.AddPhoto("a.jpg");
  const RunResult run = box.RunOn();
  EXPECT_EQ(run.exit_status, 0);
  EXPECT_THAT(run.log, ElementsAre(kVersionFailed, kPostFailed));
  EXPECT_TRUE(AutoOrients(run));
  EXPECT_EQ(box.List(MetadataOf("a.jpg")), ThumbNames("XL B M L SM"));
}

TEST(DaemonTest, DeadDaemonIsLikeAMissingOne) {
  Sandbox box;
  box.AddPhoto("a.jpg");
  box.StartDaemon(AnswerVersion(1));
  box.StopDaemon();
  EXPECT_TRUE(box.Exists("/tmp/keldoindexplugind_sock"));
  EXPECT_THAT(box.RunOn().log, ElementsAre(kVersionFailed, kPostFailed));
}

TEST(DaemonTest, KnownPhotoIsNotRotatedByItsTag) {
  Sandbox box;
  box.AddPhoto("a.jpg");
  box.StartDaemon(AnswerVersion(1));
  const RunResult run = box.RunOn();
  EXPECT_THAT(run.log, IsEmpty());
  EXPECT_FALSE(AutoOrients(run));
  EXPECT_EQ(run.invocations.size(), 2U) << "nothing to compare with: no detection";
}

TEST(DaemonTest, AnswerWithoutVersionMeansVersionZero) {
  Sandbox box;
  box.AddPhoto("a.jpg");
  box.StartDaemon([](const std::string&) { return "{\"success\":true}"; });
  const RunResult run = box.RunOn();
  EXPECT_THAT(run.log, IsEmpty());
  EXPECT_TRUE(AutoOrients(run));
}

TEST(DaemonTest, NegativeVersionCountsAsNone) {
  Sandbox box;
  box.AddPhoto("a.jpg");
  box.StartDaemon(AnswerVersion(-5));
  EXPECT_TRUE(AutoOrients(box.RunOn()));
}

TEST(DaemonTest, AnswersWithoutSuccessAreFailures) {
  for (const char* answer :
       {R"({"success":false,"version":1})", R"({"version":1})", "{}", "[]", "[{\"success\":true}]",
        "true", "7", "\"success\"", "null", "rubbish", "{\"success\":tr", " ", "\xff\xfe", ""}) {
    Sandbox box;
    box.AddPhoto("a.jpg");
    box.StartDaemon([answer](const std::string&) { return answer; });
    const RunResult run = box.RunOn();
    EXPECT_EQ(run.exit_status, 0) << answer;
    EXPECT_THAT(run.log, ElementsAre(kVersionFailed, kPostFailed)) << answer;
    EXPECT_EQ(run.requests.size(), 2U) << answer;
    EXPECT_TRUE(AutoOrients(run)) << answer;
    EXPECT_EQ(box.List(MetadataOf("a.jpg")), ThumbNames("XL B M L SM")) << answer;
  }
}

// Absurd values, and values that the JSON library refuses to convert, must not end the run.
TEST(DaemonTest, OddMembersAreHarmless) {
  for (const std::string& answer :
       {std::string(R"({"success":true,"version":"abc"})"),
        std::string(R"({"success":true,"version":{}})"),
        std::string(R"({"success":true,"version":1e300})"),
        std::string(R"({"success":true,"version":99999999999999999999})"),
        std::string(R"({"success":"yes","version":1})"), std::string(R"({"success":[]})"),
        std::string(5000, '['),
        R"({"success":true,"version":0,"x":")" + std::string(1 << 20, 'x') + "\"}"}) {
    Sandbox box;
    box.AddPhoto("a.jpg");
    box.StartDaemon([answer](const std::string&) { return answer; });
    const RunResult run = box.RunOn();
    EXPECT_EQ(run.exit_status, 0) << answer.substr(0, 60);
    EXPECT_EQ(run.signal, 0) << answer.substr(0, 60);
    EXPECT_EQ(box.List(MetadataOf("a.jpg")), ThumbNames("XL B M L SM"));
  }
}

TEST(DaemonTest, PathsAreSentAsJsonTexts) {
  const std::string name = "q\"uo\\te \xc3\xa4\n\t.png";
  Sandbox box;
  box.AddPhoto(name);
  box.StartDaemon(AnswerVersion(0));
  const RunResult run = box.RunOn();
  ASSERT_EQ(run.requests.size(), 2U) << "a newline in a name does not end the packet";
  for (const std::string& request : run.requests) {
    Json::Value value;
    ASSERT_TRUE(Json::Reader().parse(request, value)) << request;
    EXPECT_EQ(value["path"].asString(), "/volume1/photo/" + name);
  }
}

TEST(DaemonTest, NameThatIsNotUtf8IsSentWithoutHarm) {
  Sandbox box;
  box.AddPhoto("\xff\xfe.png");
  box.StartDaemon(AnswerVersion(0));
  const RunResult run = box.RunOn();
  EXPECT_EQ(run.requests.size(), 2U);
  EXPECT_THAT(run.log, Not(Contains(kVersionFailed)));
  EXPECT_EQ(box.List(MetadataOf("\xff\xfe.png")), ThumbNames("XL B M L SM"));
}

}  // namespace
}  // namespace keldo::testing
