#include "thumbs/daemon_requests.h"

#include "fakes/daemon_requests_test.h"

namespace keldo::testing {
namespace {

TEST_F(DaemonRequestsTest, IndexVersionIsAskedForAPath) {
  Reply(R"({"success": true, "version": 7})");
  EXPECT_EQ(GetIndexVersion("/v/a.jpg"), 7);
  ExpectSent(R"({"command": "GET_INDEX_VERSION", "path": "/v/a.jpg"})");
  ExpectNoLog();
}

TEST_F(DaemonRequestsTest, WithoutADaemonThereIsNoVersion) {
  EXPECT_EQ(GetIndexVersion("/v/a.jpg"), -1);
  ExpectSent(R"({"command": "GET_INDEX_VERSION", "path": "/v/a.jpg"})");
  ExpectFailure(59);
}

TEST_F(DaemonRequestsTest, AMissingVersionIsZero) {
  Reply(R"({"success": true})");
  EXPECT_EQ(GetIndexVersion("/v/a.jpg"), 0);
  ExpectNoLog();
}

TEST_F(DaemonRequestsTest, AVersionThatIsNotAnIntegerIsNotUsed) {
  for (const char* version : {"\"3\"", "{}", "[3]", "99999999999", "1e300"}) {
    Reply(std::string(R"({"success": true, "version": )") + version + "}");
    EXPECT_EQ(GetIndexVersion("/v/a.jpg"), -1) << version;
  }
}

TEST_F(DaemonRequestsTest, NegativeVersionsAreReturnedUnchanged) {
  Reply(R"({"success": true, "version": -5})");
  EXPECT_EQ(GetIndexVersion("/v/a.jpg"), -5);
}

TEST_F(DaemonRequestsTest, AFailedReplyGivesNoVersion) {
  for (const std::string& reply : FailedReplies()) {
    fake().Reset();
    Reply(reply);
    EXPECT_EQ(GetIndexVersion("/v/a.jpg"), -1) << reply;
    ExpectFailure(59);
  }
}

TEST_F(DaemonRequestsTest, PathsAreSentByteForByte) {
  const std::string path = "/v/\"q\"\\ \n\t%s \xc3\xa4 \xff.jpg";
  Reply(R"({"success": true, "version": 1})");
  EXPECT_EQ(GetIndexVersion(path), 1);
  ASSERT_EQ(fake().packets.size(), 1u);
  EXPECT_EQ(fake().packets[0].value["path"].asString(), path);
}

TEST_F(DaemonRequestsTest, FinishedPhotosArePosted) {
  Reply(R"({"success": true})");
  PostPhotoConvert("/v/a.jpg");
  ExpectSent(R"({"command": "POST_PHOTO_CONVERT", "path": "/v/a.jpg"})");
  ExpectNoLog();
}

TEST_F(DaemonRequestsTest, AFailedPhotoPostIsLogged) {
  PostPhotoConvert("/v/a.jpg");
  ExpectFailure(139);
  for (const std::string& reply : FailedReplies()) {
    fake().Reset();
    Reply(reply);
    PostPhotoConvert("/v/a.jpg");
    ExpectFailure(139);
  }
}

}  // namespace
}  // namespace keldo::testing
