#include "fakes/core_test.h"
#include "fakes/profiles.h"
#include "thumbs/thumb_state.h"

namespace keldo::testing {
namespace {

constexpr time_t kPhotoTime = 5000;

class PhaseStateTest : public CoreTest {
 protected:
  void SetUp() override {
    CoreTest::SetUp();
    LoadProfiles(profiles_, In("thumb.conf"));
    SetTime(WriteFile(photo_, "photo"), kPhotoTime);
    for (const char* kind : {"XL", "B", "M", "L", "SM", "S"})
      Make(kind, kPhotoTime);
  }

  [[nodiscard]] std::string Thumb(const std::string& kind) const {
    return In("ea/KELDOPHOTO_THUMB_" + kind + ".jpg");
  }
  void Make(const std::string& kind, time_t time, const std::string& bytes = "xy") const {
    SetTime(WriteFile(Thumb(kind), bytes), time);
  }
  void Remove(const std::string& kind) const { ASSERT_EQ(unlink(Thumb(kind).c_str()), 0); }
  [[nodiscard]] int Due() const { return FirstPhaseDue(profiles_, photo_, In("ea")); }

  ThumbProfileList profiles_;
  const std::string photo_ = In("a.jpg");
};

TEST_F(PhaseStateTest, NothingIsDueWhenAllIsThereAndCurrent) {
  EXPECT_EQ(Due(), kNoPhaseDue);
}

TEST_F(PhaseStateTest, APhaseIsDueWhenOneOfItsThumbnailsIsMissing) {
  Remove("S");
  EXPECT_EQ(Due(), 2);
  Remove("SM");
  EXPECT_EQ(Due(), 1);
  Remove("M");
  EXPECT_EQ(Due(), 0);
}

TEST_F(PhaseStateTest, AFileOfLessThanTwoBytesIsNotAThumbnail) {
  Make("S", kPhotoTime, "x");
  EXPECT_EQ(Due(), 2);
  Make("L", kPhotoTime, "");
  EXPECT_EQ(Due(), 1);
  Make("B", kPhotoTime, "x");
  EXPECT_EQ(Due(), 0);
}

TEST_F(PhaseStateTest, APhaseIsDueWhenThePhotoIsNewerThanOneOfItsThumbnails) {
  Make("S", kPhotoTime - 1);
  EXPECT_EQ(Due(), 2);
  Make("L", kPhotoTime - 1);
  EXPECT_EQ(Due(), 1);
  Make("XL", kPhotoTime - 1);
  EXPECT_EQ(Due(), 0);
}

TEST_F(PhaseStateTest, TheFirstOfSeveralDuePhasesIsReturned) {
  Make("S", kPhotoTime - 1);
  Make("SM", kPhotoTime, "x");
  EXPECT_EQ(Due(), 1);
  Make("L", kPhotoTime - 1);
  Remove("B");
  EXPECT_EQ(Due(), 0);
}

TEST_F(PhaseStateTest, EitherSpellingCounts) {
  Remove("M");
  const std::string colon = In("ea/KELDOPHOTO:THUMB_M.jpg");
  SetTime(WriteFile(colon, "xy"), kPhotoTime);
  EXPECT_EQ(Due(), kNoPhaseDue);
  SetTime(colon, kPhotoTime - 1);
  EXPECT_EQ(Due(), 0);
}

TEST_F(PhaseStateTest, APhaseWithoutProfilesIsComplete) {
  EXPECT_EQ(FirstPhaseDue(ThumbProfileList(), photo_, In("ea")), kNoPhaseDue);
  ThumbProfileList only_last;
  LoadProfiles(only_last, In("last.conf"), "[thumb]\nfilename=KELDOPHOTO_THUMB_S.jpg\nphase=2\n");
  EXPECT_EQ(FirstPhaseDue(only_last, photo_, In("none")), 2);
}

TEST_F(PhaseStateTest, APhotoThatVanishedMakesNothingStale) {
  ASSERT_EQ(unlink(photo_.c_str()), 0);
  EXPECT_EQ(Due(), kNoPhaseDue);
  Remove("S");
  EXPECT_EQ(Due(), 2);
}

}  // namespace
}  // namespace keldo::testing
