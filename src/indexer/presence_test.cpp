#include <gtest/gtest.h>
#include <syslog.h>
#include <unistd.h>

#include <string>
#include <utility>
#include <vector>

#include "fakes/core_test.h"
#include "indexer/indexer.h"

namespace keldo {
namespace {

using testing::fake;
using Texts = std::vector<std::string>;

constexpr time_t kPhotoTime = 1000000;

// A photo dated kPhotoTime, and its metadata directory.
class PresenceTest : public testing::CoreTest {
 protected:
  void SetUp() override {
    CoreTest::SetUp();
    WriteFile(photo_, "photo");
    SetTime(photo_, kPhotoTime);
    MakeDir(thumbs_);
  }

  // Writes a thumbnail whose time is `seconds` after the photo's.
  std::string WriteThumb(const std::string& name, int seconds = 0,
                         const std::string& bytes = "x") const {
    std::string path = WriteFile(Thumb(name), bytes);
    SetTime(path, kPhotoTime + seconds);
    return path;
  }
  [[nodiscard]] std::string Thumb(const std::string& name) const { return thumbs_ + "/" + name; }
  [[nodiscard]] bool ArePresent(ThumbSizeMask mask) const {
    return AreWantedThumbnailsPresent(photo_.c_str(), mask);
  }

  void ExpectMetadataDirLog(int line) const {
    ExpectOneLog(LOG_ERR, "keldomk_util:" + std::to_string(line) +
                              " KELDOEADirPath error [0x001F eadir.c:12] on " + photo_);
  }
  static void FailMetadataDir() {
    fake().FailCall("KELDOEADirPath");
    fake().kept_error = {0x1f, "eadir.c", 12};
  }

  const std::string photo_ = In("photos/a %s[1].jpg");
  const std::string thumbs_ = In("photos/@eaDir/a %s[1].jpg");
};

// ---- All wanted thumbnails ----

TEST_F(PresenceTest, ANullPathHasNoThumbnails) {
  EXPECT_FALSE(AreWantedThumbnailsPresent(nullptr, 0));
  ExpectOneLog(LOG_ERR, "keldomk_util:232 Bad parameters.");
}

TEST_F(PresenceTest, WithoutAMetadataDirectoryNothingIsPresent) {
  FailMetadataDir();
  EXPECT_FALSE(ArePresent(0));
  ExpectMetadataDirLog(238);
}

TEST_F(PresenceTest, AMaskOfZeroWantsNothing) {
  EXPECT_TRUE(ArePresent(0));
  EXPECT_TRUE(AreWantedThumbnailsPresent(In("none").c_str(), 0));
  EXPECT_EQ(fake().CallsOf({"GetFileNameEAFileExist"}), Texts{});
  ExpectNoLog();
}

TEST_F(PresenceTest, EitherSpellingOfEveryKindIsPresent) {
  for (const ThumbKindInfo& row : kThumbKindTable) {
    EXPECT_FALSE(ArePresent(1 << row.kind));
    WriteThumb(row.kind % 2 == 0 ? row.underscore_name : row.colon_name);
    EXPECT_TRUE(ArePresent(1 << row.kind));
  }
  EXPECT_TRUE(ArePresent(kAllKinds));
  EXPECT_TRUE(ArePresent(-1));
  ExpectNoLog();
}

TEST_F(PresenceTest, OneMissingKindIsEnough) {
  for (const ThumbKindInfo& row : kThumbKindTable) {
    if (row.kind != THUMB_B) WriteThumb(row.underscore_name);
  }
  EXPECT_FALSE(ArePresent(kAllKinds));
  EXPECT_TRUE(ArePresent(kAllKinds & ~(1 << THUMB_B)));
}

TEST_F(PresenceTest, WantedKindsAreProbedInTheOrderOfTheTable) {
  EXPECT_FALSE(ArePresent(kAllKinds & ~(1 << THUMB_M)));
  const auto probe = [&](const std::string& size) {
    return "GetFileNameEAFileExist(" + thumbs_ + ", KELDOPHOTO_THUMB_" + size +
           ".jpg, KELDOPHOTO:THUMB_" + size + ".jpg)";
  };
  EXPECT_EQ(fake().CallsOf({"GetFileNameEAFileExist", "RemoveEAFile"}),
            (Texts{probe("S"), probe("B"), probe("L"), probe("XL"), probe("SM")}));
}

TEST_F(PresenceTest, StaleAndEmptyThumbnailsOfWantedKindsGoInBothSpellings) {
  WriteThumb("KELDOPHOTO_THUMB_S.jpg", -1);
  WriteThumb("KELDOPHOTO:THUMB_S.jpg", 5);
  WriteThumb("KELDOPHOTO_THUMB_M.jpg", 5, "");
  WriteThumb("KELDOPHOTO_THUMB_B.jpg", 5);
  WriteThumb("KELDOPHOTO:THUMB_L.jpg", -1);
  EXPECT_FALSE(ArePresent(1 << THUMB_S | 1 << THUMB_M | 1 << THUMB_B));
  EXPECT_FALSE(Exists(Thumb("KELDOPHOTO_THUMB_S.jpg")));
  EXPECT_FALSE(Exists(Thumb("KELDOPHOTO:THUMB_S.jpg")));
  EXPECT_FALSE(Exists(Thumb("KELDOPHOTO_THUMB_M.jpg")));
  EXPECT_TRUE(Exists(Thumb("KELDOPHOTO_THUMB_B.jpg")));
  EXPECT_TRUE(Exists(Thumb("KELDOPHOTO:THUMB_L.jpg")));
  const std::string removal = "RemoveEAFile(" + thumbs_ + ", KELDOPHOTO_THUMB_";
  EXPECT_EQ(fake().CallsOf({"RemoveEAFile"}), (Texts{removal + "S.jpg, KELDOPHOTO:THUMB_S.jpg)",
                                                     removal + "M.jpg, KELDOPHOTO:THUMB_M.jpg)"}));
  ExpectNoLog();
}

TEST_F(PresenceTest, AStaleColonSpellingAloneIsRemoved) {
  WriteThumb("KELDOPHOTO:THUMB_XL.jpg", -1);
  EXPECT_FALSE(ArePresent(1 << THUMB_XL));
  EXPECT_FALSE(Exists(Thumb("KELDOPHOTO:THUMB_XL.jpg")));
}

TEST_F(PresenceTest, ACurrentThumbnailIsNeverRemoved) {
  WriteThumb("KELDOPHOTO_THUMB_S.jpg");
  EXPECT_TRUE(ArePresent(1));
  EXPECT_EQ(fake().CallsOf({"RemoveEAFile"}), Texts{});
}

// ---- Films ----

class FilmTest : public PresenceTest {
 protected:
  [[nodiscard]] int Films() const { return HasConvertedFilms(photo_.c_str()); }
  static void ReplyBitrate(int bitrate) {
    fake().on_packet = [bitrate](const Json::Value&) {
      Json::Value reply(Json::objectValue);
      reply["success"] = true;
      reply["media"]["frame_bitrate"] = bitrate;
      return reply;
    };
  }
};

TEST_F(FilmTest, ANullPathCountsAsHavingFilms) {
  EXPECT_EQ(HasConvertedFilms(nullptr), -1);
  ExpectOneLog(LOG_ERR, "keldomk_util:189 Bad parameters.");
}

TEST_F(FilmTest, WithoutAMetadataDirectoryThereAreNoFilms) {
  FailMetadataDir();
  EXPECT_EQ(Films(), 0);
  ExpectMetadataDirLog(194);
}

TEST_F(FilmTest, WithoutAnyFileThereAreNoFilms) {
  EXPECT_EQ(Films(), 0);
  EXPECT_EQ(fake().packets.size(), 0u);
  ExpectNoLog();
}

TEST_F(FilmTest, EveryFilmFileInEitherSpellingCounts) {
  for (const char* tail : {"FILM_H.mp4", "FILM_M.mp4", "FILM_L.mp4", "FILM_MOBILE.mp4",
                           "FILM_MOBILE_IPHONE", "FILM.flv"}) {
    for (const char* head : {"KELDOPHOTO_", "KELDOPHOTO:"}) {
      const std::string path = WriteFile(Thumb(std::string(head) + tail), "");
      EXPECT_EQ(Films(), 1) << path;
      unlink(path.c_str());
      EXPECT_EQ(Films(), 0) << path;
    }
  }
  EXPECT_EQ(fake().packets.size(), 0u);
}

TEST_F(FilmTest, FilmsAreProbedAtOnceThenTheOtherFormats) {
  EXPECT_EQ(Films(), 0);
  const std::string probe = "IsEAFileExist(" + thumbs_ + ", ";
  EXPECT_EQ(fake().CallsOf({"IsEAFileExist"}),
            (Texts{probe + "KELDOPHOTO_FILM_H.mp4 KELDOPHOTO:FILM_H.mp4 KELDOPHOTO_FILM_M.mp4 "
                           "KELDOPHOTO:FILM_M.mp4 KELDOPHOTO_FILM_L.mp4 KELDOPHOTO:FILM_L.mp4 "
                           "KELDOPHOTO_FILM_MOBILE.mp4 KELDOPHOTO:FILM_MOBILE.mp4 "
                           "KELDOPHOTO_FILM_MOBILE_IPHONE KELDOPHOTO:FILM_MOBILE_IPHONE)",
                   probe + "KELDOPHOTO_FILM.flv KELDOPHOTO:FILM.flv)",
                   probe + "KELDOPHOTO_FILM_H264.mp4 KELDOPHOTO:FILM_H264.mp4)"}));
}

TEST_F(FilmTest, AnH264FilmCountsBelowTheHighestBitRate) {
  for (const char* name : {"KELDOPHOTO_FILM_H264.mp4", "KELDOPHOTO:FILM_H264.mp4"}) {
    const std::string path = WriteFile(Thumb(name), "");
    for (const auto& [bitrate, films] : {std::pair{4499999, 1}, {4500000, 0}, {0, 1}}) {
      ReplyBitrate(bitrate);
      EXPECT_EQ(Films(), films) << name << ' ' << bitrate;
    }
    unlink(path.c_str());
  }
  ExpectNoLog();
}

TEST_F(FilmTest, TheVideoRecordOfTheFileIsAskedFor) {
  WriteFile(Thumb("KELDOPHOTO_FILM_H264.mp4"), "");
  ReplyBitrate(1);
  EXPECT_EQ(Films(), 1);
  ASSERT_EQ(fake().packets.size(), 1u);
  const Json::Value& request = fake().packets[0].value;
  EXPECT_EQ(request["command"].asString(), "GET_MEDIA_FROM_PLUGIN_DB");
  EXPECT_EQ(request["type"].asInt(), 1);
  EXPECT_EQ(request["path"].asString(), photo_);
}

TEST_F(FilmTest, AnH264FilmWithoutARecordDoesNotCount) {
  WriteFile(Thumb("KELDOPHOTO_FILM_H264.mp4"), "");
  EXPECT_EQ(Films(), 0);
  EXPECT_EQ(testing::CapturedSyslog(),
            (std::vector<testing::LogLine>{
                {LOG_ERR, "keldomk_ipc:32 fail"},
                {LOG_ERR, "keldomk_util:143 fail to get media from plugin db: " + photo_}}));
}

TEST_F(FilmTest, TheDaemonIsNotAskedWhenOtherFilmsExist) {
  WriteFile(Thumb("KELDOPHOTO_FILM_H264.mp4"), "");
  WriteFile(Thumb("KELDOPHOTO_FILM.flv"), "");
  EXPECT_EQ(Films(), 1);
  EXPECT_EQ(fake().packets.size(), 0u);
}

}  // namespace
}  // namespace keldo
