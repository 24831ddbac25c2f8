#include "render/thumb_requests.h"

#include <algorithm>

#include "fakes/converter.h"
#include "fakes/core_test.h"
#include "fakes/profiles.h"
#include "thumbs/paths.h"

namespace keldo::testing {
namespace {

using Texts = std::vector<std::string>;

class ThumbRequestsTest : public CoreTest {
 protected:
  void SetUp() override {
    CoreTest::SetUp();
    LoadProfiles(profiles_, In("thumb.conf"));
    fake().on_run = [](const Command& command) { return WriteOutputs(command); };
    WriteFile(photo_, "photo");
    SetTime(photo_, 5000);
  }

  [[nodiscard]] bool Make(int phase, bool auto_orient = false, int rotate = 0) const {
    return MakePhotoThumbRequests(profiles_, phase, photo_, ea_, auto_orient, rotate);
  }

  void Existing(const std::string& name, const std::string& bytes, time_t time) const {
    SetTime(WriteFile(ea_ + "/" + name, bytes), time);
  }

  [[nodiscard]] bool Has(const std::string& name) const { return Exists(ea_ + "/" + name); }

  // Every value that follows `option`.
  [[nodiscard]] static Texts ValuesOf(const Command& command, const std::string& option) {
    Texts values;
    for (std::size_t i = 0; i + 1 < command.size(); ++i) {
      if (command[i] == option) values.push_back(command[i + 1]);
    }
    return values;
  }

  ThumbProfileList profiles_;
  const std::string photo_ = In("a.png");
  const std::string ea_ = In("ea");
};

// ---- The requests of a phase ----

TEST_F(ThumbRequestsTest, APhaseIsOneRunWithEveryProfilesOwnValues) {
  EXPECT_TRUE(Make(0, true, 0));
  ASSERT_EQ(fake().runs.size(), 1u);
  const Command& command = fake().runs[0];
  const Texts outputs = OutputsOf(command);
  ASSERT_EQ(outputs.size(), 3u);
  EXPECT_EQ(command, (Texts{paths::kSystemConverter, paths::kSystemConverter, "-define",
                            "registry:temporary-path=" + ea_, photo_,
                            // XL fills its box.
                            "(", "-clone", "0", "-define", "jpeg:size=1280x1280", "-thumbnail",
                            "1280x1280>^", "-quality", "91", "+profile", "!icc,*", "-flatten",
                            "-auto-orient", "-unsharp", "1x1+1+0", "-colorspace", "sRGB", "-write",
                            outputs[0], ")", "-delete", "0",
                            // B fits into its box and is not sharpened.
                            "(", "+clone", "-define", "jpeg:size=640x640", "-thumbnail", "640x640>",
                            "-quality", "84", "+profile", "!icc,*", "-flatten", "-auto-orient",
                            "-colorspace", "sRGB", "-write", outputs[1], "+delete", ")",
                            // M fills its box.
                            "-define", "jpeg:size=320x320", "-thumbnail", "320x320>^", "-quality",
                            "83", "+profile", "!icc,*", "-flatten", "-auto-orient", "-unsharp",
                            "3x1+1+0", "-colorspace", "sRGB", outputs[2]}));
  for (const char* name :
       {"KELDOPHOTO_THUMB_XL.jpg", "KELDOPHOTO_THUMB_B.jpg", "KELDOPHOTO_THUMB_M.jpg"}) {
    EXPECT_TRUE(Has(name)) << name;
  }
  EXPECT_FALSE(Has("KELDOPHOTO_THUMB_L.jpg"));
  EXPECT_EQ(Mode(ea_), 0777u);
  ExpectNoLog();
}

TEST_F(ThumbRequestsTest, OnlyTheFirstPhaseDropsProfiles) {
  for (const auto& [phase, groups] : {std::pair{0, 3U}, {1, 0U}, {2, 0U}}) {
    fake().runs.clear();
    EXPECT_TRUE(Make(phase));
    EXPECT_EQ(ValuesOf(fake().runs.at(0), "+profile"), Texts(groups, "!icc,*")) << phase;
  }
}

TEST_F(ThumbRequestsTest, TheCallersOrientationIsInEveryRequest) {
  EXPECT_TRUE(Make(0, false, 270));
  EXPECT_EQ(ValuesOf(fake().runs.at(0), "-rotate"), (Texts{"270", "270", "270"}));
  const Command& command = fake().runs[0];
  EXPECT_EQ(std::count(command.begin(), command.end(), "-auto-orient"), 0);
  EXPECT_EQ(std::count(command.begin(), command.end(), "-flop"), 0);
}

TEST_F(ThumbRequestsTest, AHeicPhotoIsRenderedInYCbCr) {
  const std::string photo = WriteFile(In("IMG_0001.HEIC"), "photo");
  EXPECT_TRUE(MakePhotoThumbRequests(profiles_, 0, photo, ea_, true, 0));
  EXPECT_EQ(ValuesOf(fake().runs.at(0), "-colorspace"), (Texts{"YCbCr", "YCbCr", "YCbCr"}));
  EXPECT_EQ(fake().runs[0].at(4), photo + "[0]");
}

TEST_F(ThumbRequestsTest, OnlyHeicIsYCbCr) {
  for (const char* name : {"heic", "a.heif", "a.heic.png", "a.avif"}) {
    fake().runs.clear();
    const std::string photo = WriteFile(In(name), "photo");
    EXPECT_TRUE(
        MakePhotoThumbRequests(profiles_, 2, photo, In(std::string("ea.") + name), false, 0));
    EXPECT_EQ(ValuesOf(fake().runs.at(0), "-colorspace"), (Texts{"sRGB"})) << name;
  }
}

TEST_F(ThumbRequestsTest, AMissingPhotoLeavesNoTrace) {
  EXPECT_FALSE(MakePhotoThumbRequests(profiles_, 0, In("none.png"), ea_, true, 0));
  EXPECT_FALSE(Exists(ea_));
  EXPECT_TRUE(fake().runs.empty());
  ExpectNoLog();
}

TEST_F(ThumbRequestsTest, APhaseWithoutProfilesOnlyMakesTheDirectory) {
  ThumbProfileList none;
  EXPECT_TRUE(MakePhotoThumbRequests(none, 0, photo_, ea_, true, 0));
  EXPECT_TRUE(Exists(ea_));
  EXPECT_TRUE(fake().runs.empty());
}

// ---- What is up to date ----

TEST_F(ThumbRequestsTest, CurrentThumbnailsNeedNoRun) {
  Existing("KELDOPHOTO_THUMB_L.jpg", "current", 5000);
  Existing("KELDOPHOTO:THUMB_SM.jpg", "current", 6000);
  EXPECT_TRUE(Make(1));
  EXPECT_TRUE(fake().runs.empty());
}

TEST_F(ThumbRequestsTest, OnlyWhatIsNotCurrentIsRendered) {
  Existing("KELDOPHOTO_THUMB_XL.jpg", "current", 5000);
  Existing("KELDOPHOTO_THUMB_B.jpg", "older", 4999);
  EXPECT_TRUE(Make(0));
  EXPECT_EQ(ValuesOf(fake().runs.at(0), "-thumbnail"), (Texts{"640x640>", "320x320>^"}));
  EXPECT_EQ(ReadFile(ea_ + "/KELDOPHOTO_THUMB_XL.jpg"), "current");
  EXPECT_EQ(ReadFile(ea_ + "/KELDOPHOTO_THUMB_B.jpg"), "thumbnail");
}

TEST_F(ThumbRequestsTest, AThumbnailOfOneByteIsRenderedAgain) {
  Existing("KELDOPHOTO_THUMB_L.jpg", "x", 6000);
  Existing("KELDOPHOTO_THUMB_SM.jpg", "xy", 6000);
  EXPECT_TRUE(Make(1));
  EXPECT_EQ(ValuesOf(fake().runs.at(0), "-thumbnail"), (Texts{"800x800>^"}));
}

// ---- Failure ----

TEST_F(ThumbRequestsTest, AFailedPhaseFailsAsAWhole) {
  fake().on_run = [](const Command&) { return 1; };
  Existing("KELDOPHOTO_THUMB_M.jpg", "phase 0", 5000);
  Existing("KELDOPHOTO_THUMB_L.jpg", "current", 5000);
  Existing("KELDOPHOTO:THUMB_L.jpg", "current", 5000);
  EXPECT_FALSE(Make(1));
  EXPECT_TRUE(Has("KELDOPHOTO_THUMB_L.fail"));
  EXPECT_TRUE(Has("KELDOPHOTO_THUMB_SM.fail"));
  EXPECT_FALSE(Has("KELDOPHOTO_THUMB_L.jpg"));
  EXPECT_FALSE(Has("KELDOPHOTO:THUMB_L.jpg"));
  for (const char* name :
       {"KELDOPHOTO_THUMB_XL.fail", "KELDOPHOTO_THUMB_M.fail", "KELDOPHOTO_THUMB_S.fail"}) {
    EXPECT_FALSE(Has(name)) << name;
  }
  EXPECT_TRUE(Has("KELDOPHOTO_THUMB_M.jpg"));
}

TEST_F(ThumbRequestsTest, APhasesProfilesAreMarkedAndCounted) {
  MakeDir(ea_);
  EXPECT_EQ(MarkPhaseFailed(profiles_, 1, ea_), 2);
  EXPECT_TRUE(Has("KELDOPHOTO_THUMB_L.fail"));
  EXPECT_TRUE(Has("KELDOPHOTO_THUMB_SM.fail"));
  EXPECT_FALSE(Has("KELDOPHOTO_THUMB_S.fail"));
  EXPECT_EQ(MarkPhaseFailed(profiles_, PHASE_ALL, ea_), 6);
  for (const char* kind : {"S", "M", "B", "L", "XL", "SM"}) {
    EXPECT_TRUE(Has(std::string("KELDOPHOTO_THUMB_") + kind + ".fail")) << kind;
  }
  EXPECT_EQ(MarkPhaseFailed(ThumbProfileList(), PHASE_ALL, ea_), 0);
}

// ---- One profile under another name ----

TEST_F(ThumbRequestsTest, ARotatedRenderingHasItsOwnNameAndAngle) {
  MakeDir(ea_);
  const ThumbProfile& profile = *profiles_.at(1, 1);
  EXPECT_TRUE(MakeRotatedThumbRequest(profile, {90, photo_, "Temp_90.jpg", ea_}));
  ASSERT_EQ(fake().runs.size(), 1u);
  EXPECT_EQ(fake().runs[0], (Texts{paths::kSystemConverter,
                                   paths::kSystemConverter,
                                   "-define",
                                   "registry:temporary-path=" + ea_,
                                   photo_,
                                   "-define",
                                   "jpeg:size=800x800",
                                   "-thumbnail",
                                   "800x800>^",
                                   "-quality",
                                   "85",
                                   "+profile",
                                   "!icc,*",
                                   "-flatten",
                                   "-rotate",
                                   "90",
                                   "-unsharp",
                                   "2x1+1+0",
                                   "-colorspace",
                                   "sRGB",
                                   fake().runs[0].back()}));
  EXPECT_EQ(ReadFile(ea_ + "/Temp_90.jpg"), "thumbnail");
}

TEST_F(ThumbRequestsTest, ARotatedRenderingIsAlwaysMade) {
  Existing("Temp_0.jpg", "current", 6000);
  EXPECT_TRUE(MakeRotatedThumbRequest(*profiles_.at(0, 0), {0, photo_, "Temp_0.jpg", ea_}));
  EXPECT_EQ(ArgumentOf(fake().runs.at(0), "-rotate"), "");
  EXPECT_EQ(ReadFile(ea_ + "/Temp_0.jpg"), "thumbnail");
}

TEST_F(ThumbRequestsTest, ARotatedRenderingOfAHeicPhotoIsYCbCr) {
  MakeDir(ea_);
  const std::string photo = WriteFile(In("a.heic"), "photo");
  EXPECT_TRUE(MakeRotatedThumbRequest(*profiles_.at(0, 0), {180, photo, "Temp_180.jpg", ea_}));
  EXPECT_EQ(ArgumentOf(fake().runs.at(0), "-colorspace"), "YCbCr");
}

TEST_F(ThumbRequestsTest, AFailedRotatedRenderingLeavesNoMarkers) {
  Existing("KELDOPHOTO_THUMB_M.jpg", "current", 5000);
  fake().on_run = [](const Command&) { return 1; };
  EXPECT_FALSE(MakeRotatedThumbRequest(*profiles_.at(0, 0), {90, photo_, "Temp_90.jpg", ea_}));
  EXPECT_TRUE(Has("KELDOPHOTO_THUMB_M.jpg"));
  EXPECT_FALSE(Has("KELDOPHOTO_THUMB_M.fail"));
  EXPECT_FALSE(Has("Temp_90.fail"));
}

TEST_F(ThumbRequestsTest, WithoutAPhotoThereIsNoRotatedRendering) {
  EXPECT_FALSE(
      MakeRotatedThumbRequest(*profiles_.at(0, 0), {90, In("none.png"), "Temp_90.jpg", ea_}));
  EXPECT_TRUE(fake().runs.empty());
  ExpectNoLog();
}

}  // namespace
}  // namespace keldo::testing
