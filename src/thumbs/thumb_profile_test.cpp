#include "thumbs/thumb_profile.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <syslog.h>

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "fakes/core_test.h"
#include "platform/index_ipc.h"
#include "thumbs/thumb_state.h"

namespace keldo {
namespace {

using testing::fake;
using Texts = std::vector<std::string>;

constexpr const char* kAllSix =
    "[thumb_xl]\nsize=1280\nfilename=KELDOPHOTO_THUMB_XL.jpg\n"
    "[thumb_s]\nsize=120\nfilename=KELDOPHOTO_THUMB_S.jpg\nphase=2\n"
    "[thumb_b]\nsize=640\nfilename=KELDOPHOTO_THUMB_B.jpg\nphase=1\n"
    "[thumb_m]\nsize=320\nfilename=KELDOPHOTO:THUMB_M.jpg\nphase=1\n"
    "[thumb_l]\nsize=800\nfilename=KELDOPHOTO_THUMB_L.jpg\nphase=7\n"
    "[thumb_sm]\nsize=240\nfilename=KELDOPHOTO_THUMB_SM.jpg\nphase=2\n";

class ThumbProfileListTest : public testing::CoreTest {
 protected:
  int Load(const std::string& text) {
    return list_.load(WriteFile(In("thumb.conf"), text), "/v/photo");
  }
  [[nodiscard]] std::vector<int> Sizes(int phase) const {
    std::vector<int> sizes;
    for (std::size_t i = 0; i < list_.count(phase); ++i)
      sizes.push_back(list_.at(i, phase)->size());
    return sizes;
  }

  ThumbProfileList list_;
};

TEST_F(ThumbProfileListTest, ANewListIsEmpty) {
  for (const int phase : {PHASE_ALL, 0, 1, 2}) {
    EXPECT_EQ(list_.count(phase), 0u);
    EXPECT_EQ(list_.at(0, phase), nullptr);
    EXPECT_EQ(list_.at(list_.count(phase) - 1, phase), nullptr);
  }
}

TEST_F(ThumbProfileListTest, EveryKeyIsRead) {
  ASSERT_NE(Load("[thumb]\nsize=641\nquality=91\nunsharp=0.5x0.5+1.25+0.0\n"
                 "filename=KELDOPHOTO_THUMB_B.jpg\nphase=1\n"),
            0);
  ASSERT_EQ(list_.count(PHASE_ALL), 1u);
  const ThumbProfile& profile = *list_.at(0, PHASE_ALL);
  EXPECT_EQ(profile.size(), 641);
  EXPECT_EQ(profile.quality(), 91);
  EXPECT_EQ(profile.unsharp(), "0.5x0.5+1.25+0.0");
  EXPECT_EQ(profile.filename(), "KELDOPHOTO_THUMB_B.jpg");
  EXPECT_EQ(profile.eaFilename(), "KELDOPHOTO_THUMB_B.jpg");
  EXPECT_EQ(profile.phase(), 1);
  ExpectNoLog();
}

TEST_F(ThumbProfileListTest, MissingKeysHaveTheirDefaults) {
  ASSERT_NE(Load("[thumb]\nfilename=KELDOPHOTO_THUMB_S.jpg\n"), 0);
  ASSERT_EQ(list_.count(0), 1u);
  const ThumbProfile& profile = *list_.at(0, 0);
  EXPECT_EQ(profile.size(), 120);
  EXPECT_EQ(profile.quality(), 80);
  EXPECT_EQ(profile.unsharp(), "");
  EXPECT_EQ(profile.phase(), 0);
}

TEST_F(ThumbProfileListTest, ValuesAreNotCheckedForSense) {
  ASSERT_NE(Load("[thumb]\nsize=0\nquality=-7\nfilename=KELDOPHOTO_THUMB_S.jpg\n"), 0);
  ASSERT_EQ(list_.count(PHASE_ALL), 1u);
  EXPECT_EQ(list_.at(0, PHASE_ALL)->size(), 0);
  EXPECT_EQ(list_.at(0, PHASE_ALL)->quality(), -7);
}

TEST_F(ThumbProfileListTest, OtherSectionsAreIgnored) {
  EXPECT_NE(Load("[general]\nfilename=KELDOPHOTO_THUMB_S.jpg\n"
                 "[video]\nfilename=KELDOPHOTO_THUMB_S.jpg\n"
                 "[Thumb]\nfilename=KELDOPHOTO_THUMB_S.jpg\n"
                 "[thum]\nfilename=KELDOPHOTO_THUMB_S.jpg\n"
                 "[xthumb]\nfilename=KELDOPHOTO_THUMB_S.jpg\n"),
            0);
  for (const int phase : {PHASE_ALL, 0, 1, 2})
    EXPECT_EQ(list_.count(phase), 0u);
  ExpectNoLog();
}

TEST_F(ThumbProfileListTest, EverySectionThatBeginsWithThumbIsAProfile) {
  EXPECT_NE(Load("[thumb]\nsize=1\nfilename=KELDOPHOTO_THUMB_S.jpg\n"
                 "[thumb_s]\nsize=2\nfilename=KELDOPHOTO_THUMB_S.jpg\n"
                 "[thumbXL]\nsize=3\nfilename=KELDOPHOTO_THUMB_S.jpg\n"),
            0);
  EXPECT_EQ(Sizes(PHASE_ALL), (std::vector<int>{1, 2, 3}));
}

TEST_F(ThumbProfileListTest, ProfilesAreSortedBySize) {
  EXPECT_NE(Load("[thumb1]\nsize=640\nfilename=KELDOPHOTO_THUMB_B.jpg\n"
                 "[thumb2]\nsize=120\nfilename=KELDOPHOTO_THUMB_S.jpg\n"),
            0);
  EXPECT_EQ(Sizes(PHASE_ALL), (std::vector<int>{120, 640}));
}

TEST_F(ThumbProfileListTest, ANegativeSizeIsTheLargest) {
  EXPECT_NE(Load("[thumb1]\nsize=-1\nfilename=KELDOPHOTO_THUMB_B.jpg\n"
                 "[thumb2]\nsize=1280\nfilename=KELDOPHOTO_THUMB_XL.jpg\n"
                 "[thumb3]\nsize=-2\nfilename=KELDOPHOTO_THUMB_S.jpg\n"
                 "[thumb4]\nsize=2147483647\nfilename=KELDOPHOTO_THUMB_L.jpg\n"),
            0);
  EXPECT_EQ(Sizes(PHASE_ALL), (std::vector<int>{1280, 2147483647, -2, -1}));
}

TEST_F(ThumbProfileListTest, PhasesKeepTheOrderOfSize) {
  ASSERT_NE(Load(kAllSix), 0);
  EXPECT_EQ(Sizes(PHASE_ALL), (std::vector<int>{120, 240, 320, 640, 800, 1280}));
  EXPECT_EQ(Sizes(0), (std::vector<int>{800, 1280}));
  EXPECT_EQ(Sizes(1), (std::vector<int>{320, 640}));
  EXPECT_EQ(Sizes(2), (std::vector<int>{120, 240}));
}

TEST_F(ThumbProfileListTest, UnknownPhasesCountAsPhaseZeroAndKeepTheirNumber) {
  ASSERT_NE(Load("[thumb1]\nsize=1\nphase=7\nfilename=KELDOPHOTO_THUMB_B.jpg\n"
                 "[thumb2]\nsize=2\nphase=-1\nfilename=KELDOPHOTO_THUMB_S.jpg\n"
                 "[thumb3]\nsize=3\nphase=3\nfilename=KELDOPHOTO_THUMB_S.jpg\n"),
            0);
  EXPECT_EQ(Sizes(0), (std::vector<int>{1, 2, 3}));
  EXPECT_EQ(Sizes(PHASE_ALL), (std::vector<int>{1, 2, 3}));
  EXPECT_EQ(list_.at(0, 0)->phase(), 7);
}

TEST_F(ThumbProfileListTest, EveryOtherSelectorMeansAll) {
  ASSERT_NE(Load(kAllSix), 0);
  for (const int phase : {-1, -2, 3, 1000})
    EXPECT_EQ(list_.count(phase), 6u) << phase;
}

TEST_F(ThumbProfileListTest, TheSequencesShareTheirRecords) {
  ASSERT_NE(Load(kAllSix), 0);
  EXPECT_EQ(list_.at(list_.count(0) - 1, 0), list_.at(list_.count(PHASE_ALL) - 1, PHASE_ALL));
  EXPECT_EQ(list_.at(0, 2), list_.at(0, PHASE_ALL));
}

TEST_F(ThumbProfileListTest, AnIndexAtTheCountGivesNull) {
  ASSERT_NE(Load(kAllSix), 0);
  EXPECT_NE(list_.at(5, PHASE_ALL), nullptr);
  EXPECT_EQ(list_.at(6, PHASE_ALL), nullptr);
  EXPECT_NE(list_.at(1, 1), nullptr);
  EXPECT_EQ(list_.at(2, 1), nullptr);
}

TEST_F(ThumbProfileListTest, TheColonSpellingGivesTheUnderscoreName) {
  ASSERT_NE(Load("[thumb]\nfilename=KELDOPHOTO:THUMB_M.jpg\n"), 0);
  ASSERT_EQ(list_.count(PHASE_ALL), 1u);
  EXPECT_EQ(list_.at(0, PHASE_ALL)->filename(), "KELDOPHOTO:THUMB_M.jpg");
  EXPECT_EQ(list_.at(0, PHASE_ALL)->eaFilename(), "KELDOPHOTO_THUMB_M.jpg");
  EXPECT_TRUE(list_.at(0, PHASE_ALL)->primaryKind());
}

TEST_F(ThumbProfileListTest, OnlyTheWantedKindsAreKept) {
  fake().dir_masks = {{{"/v/photo", THUMB_TYPE_PHOTO}, 1}};
  ASSERT_NE(Load(kAllSix), 0);
  ASSERT_EQ(list_.count(PHASE_ALL), 1u);
  EXPECT_EQ(list_.at(0, PHASE_ALL)->eaFilename(), "KELDOPHOTO_THUMB_S.jpg");
  ExpectNoLog();
}

TEST_F(ThumbProfileListTest, WithoutAMaskNothingIsKeptButTheLoadSucceeds) {
  fake().FailCall("KELDOIDX_GetDirThumbSizeMap");
  EXPECT_NE(Load(kAllSix), 0);
  EXPECT_EQ(list_.count(PHASE_ALL), 0u);
  ExpectNoLog();
}

TEST_F(ThumbProfileListTest, AnEmptyFileNameIsSkippedSilently) {
  EXPECT_NE(Load("[thumb1]\nsize=5\n[thumb2]\nfilename=\n"), 0);
  EXPECT_EQ(list_.count(PHASE_ALL), 0u);
  ExpectNoLog();
}

TEST_F(ThumbProfileListTest, AnUnknownFileNameIsLoggedAndSkipped) {
  EXPECT_NE(Load("[thumb1]\nfilename=KELDOPHOTO_THUMB_Q.jpg\n"
                 "[thumb2]\nsize=5\nfilename=KELDOPHOTO_THUMB_S.jpg\n"),
            0);
  EXPECT_EQ(Sizes(PHASE_ALL), (std::vector<int>{5}));
  ExpectOneLog(LOG_ERR, "keldomk_util:118 [Error] invalid thumb filename: KELDOPHOTO_THUMB_Q.jpg");
}

TEST_F(ThumbProfileListTest, AKindThatIsNamedTwiceGivesTwoProfiles) {
  EXPECT_NE(Load("[thumb1]\nsize=1\nfilename=KELDOPHOTO_THUMB_S.jpg\n"
                 "[thumb2]\nsize=2\nfilename=KELDOPHOTO:THUMB_S.jpg\n"),
            0);
  EXPECT_EQ(list_.count(PHASE_ALL), 2u);
}

TEST_F(ThumbProfileListTest, AMissingFileFailsSilently) {
  EXPECT_EQ(list_.load(In("none"), "/v/photo"), 0);
  EXPECT_EQ(list_.count(PHASE_ALL), 0u);
  ExpectNoLog();
}

TEST_F(ThumbProfileListTest, AFileWithoutProfilesAddsNothing) {
  EXPECT_EQ(Load(std::string(kAllSix) + "rubbish\n"), 0);
  EXPECT_EQ(list_.count(PHASE_ALL), 0u);
  ExpectNoLog();
}

TEST_F(ThumbProfileListTest, TheIndexIsAskedBeforeTheFileIsRead) {
  EXPECT_EQ(list_.load(In("none"), "/v/photo"), 0);
  EXPECT_EQ(fake().calls, (Texts{"KELDOIDX_GetDirThumbSizeMap(/v/photo, 1)",
                                 "ConfParser::loadFromFile(" + In("none") + ")"}));
}

// ---- One profile ----

ThumbProfile Profile(const std::string& filename) {
  ThumbProfile::Settings settings;
  settings.filename = filename;
  return ThumbProfile(settings);
}

class ThumbProfileTest : public testing::CoreTest {
 protected:
  void SetUp() override {
    CoreTest::SetUp();
    WriteFile(photo_, "photo");
    SetTime(photo_, 1000);
  }
  std::string WriteThumb(const std::string& name, time_t seconds,
                         const std::string& bytes = "x") const {
    std::string path = WriteFile(In(name), bytes);
    SetTime(path, seconds);
    return path;
  }
  [[nodiscard]] bool IsCurrent() const { return IsThumbUpToDate(profile_, photo_, Dir()); }

  const std::string photo_ = In("a.jpg");
  const ThumbProfile profile_ = Profile("KELDOPHOTO:THUMB_M.jpg");
};

TEST_F(ThumbProfileTest, ThePrimaryKindsFillTheirBox) {
  for (const char* size : {"XL", "SM", "M", "L"}) {
    for (const char* head : {"KELDOPHOTO_THUMB_", "KELDOPHOTO:THUMB_"}) {
      EXPECT_TRUE(Profile(std::string(head) + size + ".jpg").primaryKind()) << head << size;
    }
  }
  for (const char* name : {"KELDOPHOTO_THUMB_S.jpg", "KELDOPHOTO_THUMB_B.jpg",
                           "KELDOPHOTO:THUMB_B.jpg", "KELDOPHOTO_THUMB_m.jpg", ""}) {
    EXPECT_FALSE(Profile(name).primaryKind()) << name;
  }
}

TEST_F(ThumbProfileTest, EveryColonBecomesAnUnderscore) {
  EXPECT_EQ(Profile(":a:b:.jpg:").eaFilename(), "_a_b_.jpg_");
}

TEST_F(ThumbProfileTest, AMissingThumbnailIsNotFound) {
  EXPECT_FALSE(FindThumbnail(profile_, Dir()).has_value());
  EXPECT_FALSE(FindThumbnail(profile_, In("none")).has_value());
  ExpectNoLog();
}

TEST_F(ThumbProfileTest, TheNameAsWrittenIsFound) {
  const std::string path = WriteThumb("KELDOPHOTO:THUMB_M.jpg", 1234, "four");
  const std::optional<FoundThumbnail> found = FindThumbnail(profile_, Dir());
  ASSERT_TRUE(found.has_value());
  EXPECT_EQ(found->path, path);
  EXPECT_EQ(found->status.st_mtime, 1234);
  EXPECT_EQ(found->status.st_size, 4);
}

TEST_F(ThumbProfileTest, TheUnderscoreNameIsFoundFirst) {
  WriteThumb("KELDOPHOTO:THUMB_M.jpg", 1);
  const std::string path = WriteThumb("KELDOPHOTO_THUMB_M.jpg", 2);
  const std::optional<FoundThumbnail> found = FindThumbnail(profile_, Dir());
  ASSERT_TRUE(found.has_value());
  EXPECT_EQ(found->path, path);
  EXPECT_EQ(found->status.st_mtime, 2);
}

TEST_F(ThumbProfileTest, TheColonTwinOfAnUnderscoreNameIsNotLookedFor) {
  WriteThumb("KELDOPHOTO:THUMB_M.jpg", 1);
  EXPECT_FALSE(FindThumbnail(Profile("KELDOPHOTO_THUMB_M.jpg"), Dir()).has_value());
}

TEST_F(ThumbProfileTest, AThumbnailOfThePhotosSecondIsCurrent) {
  WriteThumb("KELDOPHOTO_THUMB_M.jpg", 1000);
  EXPECT_TRUE(IsCurrent());
  WriteThumb("KELDOPHOTO_THUMB_M.jpg", 1001);
  EXPECT_TRUE(IsCurrent());
  WriteThumb("KELDOPHOTO_THUMB_M.jpg", 999);
  EXPECT_FALSE(IsCurrent());
}

TEST_F(ThumbProfileTest, OneByteIsEnoughToBeCurrent) {
  WriteThumb("KELDOPHOTO:THUMB_M.jpg", 1000, "");
  EXPECT_FALSE(IsCurrent());
  WriteThumb("KELDOPHOTO:THUMB_M.jpg", 1000, "x");
  EXPECT_TRUE(IsCurrent());
}

TEST_F(ThumbProfileTest, AStaleUnderscoreThumbnailHidesACurrentColonOne) {
  WriteThumb("KELDOPHOTO_THUMB_M.jpg", 999);
  WriteThumb("KELDOPHOTO:THUMB_M.jpg", 1000);
  EXPECT_FALSE(IsCurrent());
  EXPECT_TRUE(Exists(In("KELDOPHOTO_THUMB_M.jpg")));
}

TEST_F(ThumbProfileTest, NothingIsCurrentWithoutPhotoOrThumbnail) {
  EXPECT_FALSE(IsCurrent());
  WriteThumb("KELDOPHOTO_THUMB_M.jpg", 1000);
  EXPECT_FALSE(IsThumbUpToDate(profile_, In("none"), Dir()));
  ExpectNoLog();
}

}  // namespace
}  // namespace keldo
