#include "thumbs/progress.h"

#include <syslog.h>

#include "fakes/core_test.h"
#include "thumbs/paths.h"

namespace keldo::testing {
namespace {

using Texts = std::vector<std::string>;
using Lines = std::vector<LogLine>;
using ProgressTest = CoreTest;

TEST_F(ProgressTest, ANewCounterIsAppended) {
  fake().WriteLines(paths::kPhotoProgress, {"total=8", "total_thumb=48"});
  AddProgress(kPhotoProgress, kCompletedThumbKey, 3);
  EXPECT_EQ(fake().ReadLines(paths::kPhotoProgress),
            (Texts{"total=8", "total_thumb=48", "completed_thumb=3"}));
  EXPECT_EQ(fake().calls,
            (Texts{"KLIBCFileGetKeyValue(/var/spool/conv_progress_photo, completed_thumb, 4096, 0)",
                   "KLIBCFileSetKeyValue(/var/spool/conv_progress_photo, completed_thumb, 3, 0)"}));
  ExpectNoLog();
}

TEST_F(ProgressTest, AMissingFileIsCreated) {
  AddProgress(kVideoProgress, kCompletedKey, 1);
  EXPECT_EQ(fake().ReadLines(paths::kVideoProgress), (Texts{"completed=1"}));
  EXPECT_EQ(fake().ReadLines(paths::kPhotoProgress), Texts{});
}

TEST_F(ProgressTest, AmountsAddUp) {
  fake().WriteLines(paths::kPhotoProgress, {"completed=\"7\"", "total=9"});
  AddProgress(kPhotoProgress, kCompletedKey, 5);
  AddProgress(kPhotoProgress, kCompletedKey, -2);
  EXPECT_EQ(fake().ReadLines(paths::kPhotoProgress), (Texts{"completed=10", "total=9"}));
}

TEST_F(ProgressTest, AddingNothingWritesTheCounterAgain) {
  fake().WriteLines(paths::kPhotoProgress, {"completed=7"});
  AddProgress(kPhotoProgress, kCompletedKey, 0);
  EXPECT_EQ(fake().CallsOf({"KLIBCFileSetKeyValue"}),
            (Texts{"KLIBCFileSetKeyValue(/var/spool/conv_progress_photo, completed, 7, 0)"}));
}

TEST_F(ProgressTest, TextThatIsNotANumberCountsAsZero) {
  for (const char* line : {"completed=", "completed=many", "completed=\"\"", "completed"}) {
    fake().WriteLines(paths::kPhotoProgress, {line});
    EXPECT_EQ(ReadProgress(kPhotoProgress, kCompletedKey), 0) << line;
    AddProgress(kPhotoProgress, kCompletedKey, 4);
    EXPECT_EQ(ReadProgress(kPhotoProgress, kCompletedKey), 4) << line;
  }
}

TEST_F(ProgressTest, AnUnknownKindAndAMissingKeyChangeNothing) {
  for (const int kind : {0, 3, -1}) {
    AddProgress(kind, kCompletedKey, 1);
    EXPECT_EQ(ReadProgress(kind, kCompletedKey), 0);
  }
  AddProgress(kPhotoProgress, nullptr, 1);
  EXPECT_EQ(ReadProgress(kPhotoProgress, nullptr), 0);
  EXPECT_EQ(fake().calls, Texts{});
}

TEST_F(ProgressTest, AFailedWriteIsLogged) {
  fake().WriteLines(paths::kVideoProgress, {"completed=7"});
  fake().FailCall("KLIBCFileSetKeyValue");
  AddProgress(kVideoProgress, kCompletedKey, 1);
  ExpectOneLog(LOG_ERR,
               "keldomk_progress:117 KLIBCFileSetKeyValue fail: /var/spool/conv_progress_video");
  EXPECT_EQ(fake().ReadLines(paths::kVideoProgress), (Texts{"completed=7"}));
}

TEST_F(ProgressTest, ACounterIsRead) {
  fake().WriteLines(paths::kVideoProgress, {"total=12", "completed=3"});
  EXPECT_EQ(ReadProgress(kVideoProgress, "total"), 12);
  EXPECT_EQ(ReadProgress(kVideoProgress, kCompletedKey), 3);
  EXPECT_EQ(ReadProgress(kVideoProgress, "absent"), 0);
  EXPECT_EQ(ReadProgress(kPhotoProgress, "total"), 0);
}

}  // namespace
}  // namespace keldo::testing
