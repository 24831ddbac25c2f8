#include <dirent.h>
#include <gtest/gtest.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <string>
#include <vector>

#include "fakes/core_test.h"
#include "indexer/indexer.h"
#include "platform/index_ipc.h"
#include "thumbs/paths.h"
#include "util/handles.h"
#include "util/path.h"

namespace keldo {
namespace {

using testing::fake;
using Texts = std::vector<std::string>;

class VideoStatusTest : public testing::CoreTest {
 protected:
  // A video that needs work, since its thumbnails are missing.
  std::string WriteVideo(const std::string& name) const { return WriteFile(In(name), "video"); }

  // A video that needs nothing: the index wants no thumbnails of it and no film.
  std::string WriteFinishedVideo(const std::string& name) const {
    std::string path = WriteVideo(name);
    fake().file_masks[{path, THUMB_TYPE_VIDEO}] = 0;
    return path;
  }

  // A video that must be converted; it has no films yet.
  std::string WriteUnconvertedVideo(const std::string& name) const {
    std::string path = WriteFinishedVideo(name);
    fake().video_need_convert[path] = 1;
    return path;
  }

  // The path of an existing video, `length` bytes long.
  [[nodiscard]] std::string WriteVideoOfPathLength(std::size_t length) const {
    std::string path = Dir();
    while (path.size() + 210 < length) {
      path += "/" + std::string(200, 'd');
    }
    path += "/" + std::string(length - path.size() - 5, 'v') + ".mp4";
    return WriteFile(path, "video");
  }

  // The entries of a directory in the order in which it gives them.
  static Texts EntriesInOrder(const std::string& directory) {
    Texts names;
    const UniqueDir stream(opendir(directory.c_str()));
    while (const dirent* entry = readdir(stream.get())) {
      const std::string name = entry->d_name;
      if (name != "." && name != "..") names.push_back(JoinPath(directory, name));
    }
    return names;
  }

  static bool NeedsWork(const std::string& path) { return DoesVideoNeedWork(path.c_str()); }
};

// ---- One video ----

TEST_F(VideoStatusTest, OnlyExistingVideosNeedWork) {
  EXPECT_FALSE(DoesVideoNeedWork(nullptr));
  EXPECT_FALSE(NeedsWork(In("none.mp4")));
  EXPECT_FALSE(NeedsWork(WriteVideo("a.jpg")));
  EXPECT_EQ(fake().CallsOf({"KELDOIDX_GetThumbSizeMap"}), Texts{});
  ExpectNoLog();
}

TEST_F(VideoStatusTest, MissingThumbnailsAreWork) {
  const std::string video = WriteVideo("a.MP4");
  EXPECT_TRUE(NeedsWork(video));
  EXPECT_EQ(fake().CallsOf({"KELDOIDX_GetThumbSizeMap", "KELDOIDX_IsVideoNeedConvert"}),
            (Texts{"KELDOIDX_GetThumbSizeMap(" + video + ", 2)"}));
  ExpectNoLog();
}

TEST_F(VideoStatusTest, AStaleThumbnailIsWorkAndIsRemoved) {
  const std::string video = WriteVideo("a.mp4");
  const std::string thumb = WriteFile(In("@eaDir/a.mp4/KELDOPHOTO_THUMB_S.jpg"), "x");
  fake().file_masks[{video, THUMB_TYPE_VIDEO}] = 1;
  SetTime(thumb, 1000);
  SetTime(video, 1000);
  EXPECT_FALSE(NeedsWork(video));
  SetTime(video, 1001);
  EXPECT_TRUE(NeedsWork(video));
  EXPECT_FALSE(Exists(thumb));
}

TEST_F(VideoStatusTest, WithoutAPositiveMaskThumbnailsAreNotLookedAt) {
  const std::string video = WriteVideo("a.mp4");
  for (const int mask : {0, -1}) {
    fake().file_masks[{video, THUMB_TYPE_VIDEO}] = mask;
    EXPECT_FALSE(NeedsWork(video)) << mask;
  }
  EXPECT_EQ(fake().CallsOf({"KELDOEADirPath"}), Texts{});
}

TEST_F(VideoStatusTest, AFilmToBeMadeIsWorkUntilItIsThere) {
  const std::string video = WriteUnconvertedVideo("a.mp4");
  EXPECT_TRUE(NeedsWork(video));
  WriteFile(In("@eaDir/a.mp4/KELDOPHOTO_FILM_M.mp4"), "");
  EXPECT_FALSE(NeedsWork(video));
}

TEST_F(VideoStatusTest, OnlyTheAnswerOneAsksForAFilm) {
  const std::string video = WriteFinishedVideo("a.mp4");
  for (const int answer : {0, 2, -1}) {
    fake().video_need_convert[video] = answer;
    EXPECT_FALSE(NeedsWork(video)) << answer;
  }
}

TEST_F(VideoStatusTest, PresentThumbnailsDoNotReplaceAFilm) {
  const std::string video = WriteUnconvertedVideo("a.mp4");
  fake().file_masks[{video, THUMB_TYPE_VIDEO}] = 1;
  SetTime(WriteFile(In("@eaDir/a.mp4/KELDOPHOTO_THUMB_S.jpg"), "x"), 2000000000);
  SetTime(video, 1000);
  EXPECT_TRUE(NeedsWork(video));
}

TEST_F(VideoStatusTest, WithoutAMaskThereIsNoWork) {
  const std::string video = WriteUnconvertedVideo("a %s.mp4");
  fake().FailCall("KELDOIDX_GetThumbSizeMap");
  EXPECT_FALSE(NeedsWork(video));
  ExpectOneLog(LOG_ERR, "keldomk_thumb_status:301 [Error] get thumb size map: " + video);
}

TEST_F(VideoStatusTest, TheLongestPathIsAccepted) {
  const std::string video = WriteVideoOfPathLength(4066);
  ASSERT_EQ(video.size(), 4066u);
  EXPECT_TRUE(NeedsWork(video));
  ExpectNoLog();
}

TEST_F(VideoStatusTest, ALongerPathIsRefused) {
  const std::string video = WriteVideoOfPathLength(4067);
  ASSERT_EQ(video.size(), 4067u);
  EXPECT_FALSE(NeedsWork(video));
  ExpectOneLog(
      LOG_ERR,
      "keldomk_thumb_status:295 [Error] path is too long and can't create thumbnail: " + video);
}

// ---- A directory ----

TEST_F(VideoStatusTest, VideosAreCountedInTheDirectoryAndBelow) {
  WriteVideo("a.mp4");
  WriteVideo("sub/b.mp4");
  WriteVideo("sub/deep/c.mp4");
  WriteUnconvertedVideo("sub/d.mp4");
  WriteFinishedVideo("done.mp4");
  WriteVideo("photo.jpg");
  EXPECT_EQ(CountVideosInDir(Dir()), 4);
  ExpectNoLog();
}

TEST_F(VideoStatusTest, TheWalksFilterHoldsForFilesAndDirectories) {
  for (const char* skipped :
       {"#recycle/a.mp4", "@eaDir/a.mp4", "Holiday.app/a.mp4", "._d/a.mp4", "._a.mp4"}) {
    WriteVideo(skipped);
  }
  WriteVideo("Holiday.APP/a.mp4");
  EXPECT_EQ(CountVideosInDir(Dir()), 1);
}

TEST_F(VideoStatusTest, AMissingDirectoryIsLogged) {
  EXPECT_EQ(CountVideosInDir(In("none")), 0);
  ExpectOneLog(LOG_ERR, "keldomk_thumb_status:331 [Error] dir doesn't exist: " + In("none"));
}

TEST_F(VideoStatusTest, ADirectoryThatCannotBeOpenedIsLogged) {
  WriteVideo("a.mp4");
  fake().FailCall("opendir", 1, EACCES);
  EXPECT_EQ(CountVideosInDir(Dir()), 0);
  ExpectOneLog(LOG_ERR, "keldomk_thumb_status:337 [Error] opendir: " + Dir());
}

TEST_F(VideoStatusTest, AfterAQueuedFileTheRestOfItsDirectoryIsNotCounted) {
  for (const char* name : {"a.mp4", "b.mp4", "c.mp4"})
    WriteVideo(name);
  const Texts order = EntriesInOrder(Dir());
  for (const char* queue : {paths::kFlvQueue, paths::kFlvQueueInWork}) {
    for (std::size_t position = 0; position < order.size(); ++position) {
      fake().WriteLines(queue, {order[position]});
      EXPECT_EQ(CountVideosInDir(Dir()), static_cast<int>(position)) << queue;
    }
    unlink(queue);
  }
  EXPECT_EQ(CountVideosInDir(Dir()), 3);
}

TEST_F(VideoStatusTest, AQueuedFileHoldsBackItsOwnDirectoryOnly) {
  WriteVideo("a.mp4");
  WriteVideo("sub/b.mp4");
  WriteVideo("sub/deep/c.mp4");
  fake().WriteLines(paths::kFlvQueue, {In("sub/b.mp4")});
  EXPECT_EQ(CountVideosInDir(Dir()), 2);
}

TEST_F(VideoStatusTest, AQueuedFileThatNeedsNoWorkHoldsNothingBack) {
  fake().WriteLines(paths::kFlvQueue, {WriteFinishedVideo("a.mp4")});
  WriteVideo("b.mp4");
  WriteVideo("c.mp4");
  EXPECT_EQ(CountVideosInDir(Dir()), 2);
}

TEST_F(VideoStatusTest, ALongerLineIsAnotherFile) {
  const std::string video = WriteVideo("a.mp4");
  fake().get_line_finds_longer_lines = true;
  fake().WriteLines(paths::kFlvQueue, {video + "4"});
  fake().WriteLines(paths::kFlvQueueInWork, {video + ".mp4"});
  EXPECT_EQ(CountVideosInDir(Dir()), 1);
}

// ---- A queue ----

TEST_F(VideoStatusTest, AMissingQueueCountsNothing) {
  EXPECT_EQ(CountQueuedVideos(paths::kFlvQueue), 0);
  EXPECT_EQ(fake().CallsOf({"fopen"}), Texts{});
  ExpectNoLog();
}

TEST_F(VideoStatusTest, AQueueThatCannotBeOpenedIsLogged) {
  fake().WriteLines(paths::kFlvQueue, {WriteVideo("a.mp4")});
  fake().FailCall("fopen");
  EXPECT_EQ(CountQueuedVideos(paths::kFlvQueue), 0);
  ExpectOneLog(LOG_ERR, "keldomk_thumb_status:414 [Error] fopen: /var/spool/flv_create.queue");
}

TEST_F(VideoStatusTest, AQueueCountsTheVideosThatNeedWork) {
  const std::string queue =
      WriteFile(In("queue"), WriteVideo("a.mp4") + "\n" + WriteFinishedVideo("b.mp4") + "\n\n" +
                                 In("none.mp4") + "\n" + WriteVideo("c d%s.mp4") + "\n" +
                                 WriteVideo("last without newline.mp4"));
  EXPECT_EQ(CountQueuedVideos(queue), 3);
  ExpectNoLog();
}

TEST_F(VideoStatusTest, ATreeLineCountsItsDirectory) {
  WriteVideo("tree/a.mp4");
  WriteVideo("tree/sub/b.mp4");
  const std::string single = WriteVideo("c.mp4");
  EXPECT_EQ(CountQueuedVideos(WriteFile(In("queue"), "R:" + In("tree") + "\n" + single + "\n")), 3);
  ExpectNoLog();
}

TEST_F(VideoStatusTest, ATreeLineEndsAtItsNextColon) {
  WriteVideo("tree/a.mp4");
  WriteVideo("tree:x/b.mp4");
  WriteVideo("tree:x/c.mp4");
  EXPECT_EQ(CountQueuedVideos(WriteFile(In("queue"), "R:" + In("tree:x") + "\n")), 1);
}

TEST_F(VideoStatusTest, ATreeLineWithoutADirectoryIsLogged) {
  EXPECT_EQ(CountQueuedVideos(WriteFile(In("queue"), "R:\n")), 0);
  ExpectOneLog(LOG_ERR, "keldomk_thumb_status:331 [Error] dir doesn't exist: ");
}

TEST_F(VideoStatusTest, OnlyACapitalRAndAColonMakeATreeLine) {
  WriteVideo("tree/a.mp4");
  EXPECT_EQ(CountQueuedVideos(WriteFile(In("queue"), "r:" + In("tree") + "\n")), 0);
  EXPECT_EQ(CountQueuedVideos(WriteFile(In("queue"), "R" + In("tree") + "\n")), 0);
  ExpectNoLog();
}

TEST_F(VideoStatusTest, LinesOfABufferOrMoreAreSkipped) {
  WriteVideo("tree/a.mp4");
  // The text after the second colon only makes the line longer.
  const std::string head = "R:" + In("tree") + ":";
  const auto line_of = [&](std::size_t length) {
    return head + std::string(length - head.size() - 1, 'x') + "\n";
  };
  EXPECT_EQ(CountQueuedVideos(WriteFile(In("queue"), line_of(4095))), 1);
  EXPECT_EQ(CountQueuedVideos(WriteFile(In("queue"), line_of(4096))), 0);
  EXPECT_EQ(CountQueuedVideos(WriteFile(In("queue"), line_of(100000) + line_of(1000))), 1);
  ExpectNoLog();
}

TEST_F(VideoStatusTest, TheMainQueueLeavesOutWhatIsInWork) {
  const std::string first = WriteVideo("a.mp4");
  const std::string second = WriteVideo("b.mp4");
  WriteVideo("tree/c.mp4");
  fake().WriteLines(paths::kFlvQueue, {first, second, "R:" + In("tree")});
  EXPECT_EQ(CountQueuedVideos(paths::kFlvQueue), 3);
  fake().WriteLines(paths::kFlvQueueInWork, {first, "R:" + In("tree"), second + "x"});
  fake().get_line_finds_longer_lines = true;
  EXPECT_EQ(CountQueuedVideos(paths::kFlvQueue), 1);
}

TEST_F(VideoStatusTest, OnlyTheMainQueueHasATwin) {
  const std::string video = WriteVideo("a.mp4");
  fake().WriteLines(paths::kFlvQueueInWork, {video});
  EXPECT_EQ(CountQueuedVideos(paths::kFlvQueueInWork), 1);
  EXPECT_EQ(CountQueuedVideos(WriteFile(In("queue"), video + "\n")), 1);
}

}  // namespace
}  // namespace keldo
