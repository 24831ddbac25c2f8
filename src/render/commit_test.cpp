#include <fcntl.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <ctime>

#include "fakes/core_test.h"
#include "render/pipeline.h"

namespace keldo::testing {
namespace {

using Lines = std::vector<LogLine>;

constexpr time_t kYear = time_t{365} * 24 * 3600;

struct stat StatusOf(const std::string& path) {
  struct stat status {};
  EXPECT_EQ(stat(path.c_str(), &status), 0) << path;
  return status;
}

class CommitTest : public CoreTest {
 protected:
  void SetUp() override {
    CoreTest::SetUp();
    WriteFile(photo_, "the photo");
    SetTime(photo_, 1000000);
    before_ = StatusOf(photo_);
  }

  // A request whose rendered file holds `bytes`.
  [[nodiscard]] ThumbRequest Rendered(const std::string& name, const std::string& bytes) const {
    ThumbRequest request;
    request.tempPath = WriteFile(In("ea/tmp." + name), bytes);
    request.destPath = In("ea/" + name);
    return request;
  }

  [[nodiscard]] bool Commit(const ThumbRequestList& list) const {
    return CommitThumbnails(list, photo_, before_.st_blocks, before_.st_size);
  }

  const std::string photo_ = In("a.jpg");
  struct stat before_ {};
};

TEST_F(CommitTest, RenderedFilesMoveToTheirNames) {
  const ThumbRequestList list{Rendered("XL.jpg", "large"), Rendered("M.jpg", "medium")};
  WriteFile(list[1].destPath, "an older one");
  EXPECT_TRUE(Commit(list));
  EXPECT_EQ(ReadFile(In("ea/XL.jpg")), "large");
  EXPECT_EQ(ReadFile(In("ea/M.jpg")), "medium");
  EXPECT_EQ(Mode(In("ea/XL.jpg")), 0644u);
  EXPECT_FALSE(Exists(list[0].tempPath));
  EXPECT_FALSE(Exists(list[1].tempPath));
  ExpectNoLog();
}

TEST_F(CommitTest, AnEmptyListIsCommitted) {
  EXPECT_TRUE(Commit({}));
  ExpectNoLog();
}

// ---- A photo that changed ----

TEST_F(CommitTest, AChangeOfTheSizeAloneIsTolerated) {
  const ThumbRequestList list{Rendered("M.jpg", "medium")};
  EXPECT_TRUE(CommitThumbnails(list, photo_, before_.st_blocks, before_.st_size + 1));
  EXPECT_TRUE(Exists(In("ea/M.jpg")));
  ExpectNoLog();
}

TEST_F(CommitTest, AChangeOfTheBlocksAloneIsTolerated) {
  const ThumbRequestList list{Rendered("M.jpg", "medium")};
  EXPECT_TRUE(CommitThumbnails(list, photo_, before_.st_blocks + 8, before_.st_size));
  EXPECT_TRUE(Exists(In("ea/M.jpg")));
  ExpectNoLog();
}

TEST_F(CommitTest, APhotoThatChangedInBothCommitsNothing) {
  const ThumbRequestList list{Rendered("XL.jpg", "large"), Rendered("M.jpg", "medium")};
  WriteFile(list[1].destPath, "an older one");
  EXPECT_FALSE(CommitThumbnails(list, photo_, 9765632, 5000000000));
  ExpectOneLog(LOG_ERR, "keldomk_photo_thumb:484 [Error] file size changed: st_blocks 9765632 -> " +
                            std::to_string(before_.st_blocks) + "; st_size 5000000000 -> 9, " +
                            photo_);
  EXPECT_FALSE(Exists(list[0].tempPath));
  EXPECT_FALSE(Exists(list[1].tempPath));
  EXPECT_FALSE(Exists(In("ea/XL.jpg")));
  EXPECT_EQ(ReadFile(In("ea/M.jpg")), "an older one");
}

TEST_F(CommitTest, APhotoThatVanishedCommitsNothing) {
  const ThumbRequestList list{Rendered("XL.jpg", "large"), Rendered("M.jpg", "medium")};
  ASSERT_EQ(unlink(photo_.c_str()), 0);
  EXPECT_FALSE(Commit(list));
  ExpectOneLog(LOG_ERR, "keldomk_photo_thumb:471 Failed to KLIBCFileStat() path [" + photo_ + "]");
  EXPECT_FALSE(Exists(list[0].tempPath));
  EXPECT_FALSE(Exists(list[1].tempPath));
  EXPECT_FALSE(Exists(In("ea/XL.jpg")));
  EXPECT_EQ(fake().calls, (std::vector<std::string>{"KLIBCFileStat(" + photo_ + ", 9)"}));
}

// ---- One thumbnail of several fails ----

TEST_F(CommitTest, AMissingRenderingDoesNotStopTheOthers) {
  ThumbRequestList list{Rendered("XL.jpg", "large"), Rendered("M.jpg", "medium")};
  ASSERT_EQ(unlink(list[0].tempPath.c_str()), 0);
  EXPECT_FALSE(Commit(list));
  ExpectOneLog(LOG_ERR, "keldomk_photo_thumb:504 [Error] rename: " + list[0].tempPath + ", " +
                            list[0].destPath);
  EXPECT_EQ(ReadFile(In("ea/M.jpg")), "medium");
}

TEST_F(CommitTest, ARenderingThatCannotBeMovedIsDeleted) {
  const ThumbRequestList list{Rendered("XL.jpg", "large"), Rendered("M.jpg", "medium")};
  MakeDir(list[1].destPath);
  EXPECT_FALSE(Commit(list));
  ExpectOneLog(LOG_ERR, "keldomk_photo_thumb:504 [Error] rename: " + list[1].tempPath + ", " +
                            list[1].destPath);
  EXPECT_FALSE(Exists(list[1].tempPath));
  EXPECT_EQ(ReadFile(In("ea/XL.jpg")), "large");
}

TEST_F(CommitTest, AThumbnailWhoseModeCannotBeSetIsKept) {
  const ThumbRequestList list{Rendered("M.jpg", "medium")};
  fake().FailCall("chmod", 1, EPERM);
  EXPECT_TRUE(Commit(list));
  ExpectOneLog(LOG_ERR, "keldomk_photo_thumb:511 [Error] Failed to chmod [" + In("ea/M.jpg") +
                            "], Operation not permitted");
  EXPECT_EQ(Mode(In("ea/M.jpg")), 0666u);
}

TEST_F(CommitTest, AThumbnailOfLessThanTwoBytesIsDeleted) {
  const ThumbRequestList list{Rendered("XL.jpg", "x"), Rendered("B.jpg", "xy"),
                              Rendered("M.jpg", "")};
  EXPECT_FALSE(Commit(list));
  EXPECT_EQ(CapturedSyslog(),
            (Lines{{LOG_ERR, "keldomk_photo_thumb:515 [Error] file size of dest path: 1, " +
                                 In("ea/XL.jpg")},
                   {LOG_ERR, "keldomk_photo_thumb:515 [Error] file size of dest path: 0, " +
                                 In("ea/M.jpg")}}));
  EXPECT_FALSE(Exists(In("ea/XL.jpg")));
  EXPECT_TRUE(Exists(In("ea/B.jpg")));
  EXPECT_FALSE(Exists(In("ea/M.jpg")));
}

TEST_F(CommitTest, AThumbnailThatIsNotThereAfterTheMoveFails) {
  const ThumbRequestList list{Rendered("M.jpg", "medium")};
  ASSERT_EQ(unlink(list[0].tempPath.c_str()), 0);
  ASSERT_EQ(symlink("nowhere", list[0].tempPath.c_str()), 0);
  EXPECT_FALSE(Commit(list));
  EXPECT_EQ(CapturedSyslog(),
            (Lines{{LOG_ERR, "keldomk_photo_thumb:511 [Error] Failed to chmod [" + In("ea/M.jpg") +
                                 "], No such file or directory"},
                   {LOG_ERR, "keldomk_photo_thumb:515 [Error] file size of dest path: 0, " +
                                 In("ea/M.jpg")}}));
  EXPECT_FALSE(Exists(In("ea/M.jpg")));
}

// ---- Times ----

TEST_F(CommitTest, AFuturePhotoGivesItsThumbnailsItsTime) {
  const time_t future = time(nullptr) + kYear;
  const std::array<timespec, 2> times{{{1000, 1}, {future, 500}}};
  ASSERT_EQ(utimensat(AT_FDCWD, photo_.c_str(), times.data(), 0), 0);
  const ThumbRequestList list{Rendered("XL.jpg", "large"), Rendered("S.jpg", "x"),
                              Rendered("M.jpg", "medium")};
  EXPECT_FALSE(Commit(list));

  const std::string second = std::to_string(future);
  const std::string pairs = ", 3, " + second + ", 0, " + second + ", 0, 71, 72)";
  EXPECT_EQ(fake().CallsOf({"KLIBCFileUTime"}),
            (std::vector<std::string>{"KLIBCFileUTime(" + In("ea/XL.jpg") + pairs,
                                      "KLIBCFileUTime(" + In("ea/M.jpg") + pairs}));
  const struct stat status = StatusOf(In("ea/M.jpg"));
  EXPECT_EQ(status.st_atim.tv_sec, future);
  EXPECT_EQ(status.st_mtim.tv_sec, future);
  EXPECT_EQ(status.st_mtim.tv_nsec, 0);
}

TEST_F(CommitTest, APhotoOfThisMomentIsNotInTheFuture) {
  const ThumbRequestList list{Rendered("M.jpg", "medium")};
  SetTime(photo_, time(nullptr));
  EXPECT_TRUE(Commit(list));
  EXPECT_TRUE(fake().CallsOf({"KLIBCFileUTime"}).empty());
}

}  // namespace
}  // namespace keldo::testing
