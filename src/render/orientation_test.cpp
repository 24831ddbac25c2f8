#include "render/orientation.h"

#include <sys/stat.h>
#include <syslog.h>

#include "fakes/converter.h"
#include "fakes/core_test.h"
#include "fakes/fake_libraw.h"
#include "fakes/profiles.h"

namespace keldo::testing {
namespace {

using Texts = std::vector<std::string>;

class OrientationTest : public CoreTest {
 protected:
  void SetUp() override {
    CoreTest::SetUp();
    fake_libraw() = {};
    LoadProfiles(profiles_, In("thumb.conf"));
    WriteFile(source_, "photo");
    MakeDir(ea_);
    fake().on_run = [this](const Command& command) {
      if (ArgumentOf(command, "-rotate") == failing_angle_) return 1;
      return WriteOutputs(command);
    };
    fake().on_popen = [this](const PopenCall& call) -> std::optional<std::string> {
      // The rendering's name holds its angle: "Temp_90.jpg".
      const std::string& image = call.argv.at(3);
      return reports_[image.substr(image.rfind('/') + 1)];
    };
  }

  // Makes an existing thumbnail; `width` x `height` are its pixels.
  std::string Thumbnail(const std::string& name, unsigned width, unsigned height) {
    std::string path = WriteFile(ea_ + "/" + name, "thumbnail");
    fake().image_sizes[path] = {width, height};
    return path;
  }

  void SetSource(unsigned width, unsigned height) { fake().image_sizes[source_] = {width, height}; }

  void SetDifferences(const std::map<std::string, std::string>& reports) { reports_ = reports; }

  [[nodiscard]] int Detect() const { return DetectRawRotation({Dir(), &profiles_}, source_, ea_); }

  // The angles rendered, in order ("" for none), and the images compared, in order.
  [[nodiscard]] static Texts Rendered() {
    Texts angles;
    for (const Command& command : fake().runs)
      angles.push_back(ArgumentOf(command, "-rotate"));
    return angles;
  }
  [[nodiscard]] Texts Compared() const {
    Texts names;
    for (const PopenCall& call : fake().popens)
      names.push_back(call.argv.at(3).substr(ea_.size() + 1));
    return names;
  }

  [[nodiscard]] bool IsClean() const {
    for (const char* name : {"Temp_0.jpg", "Temp_90.jpg", "Temp_180.jpg", "Temp_270.jpg"}) {
      if (Exists(ea_ + "/" + name)) return false;
    }
    return true;
  }

  ThumbProfileList profiles_;
  const std::string source_ = In("a.png");
  const std::string ea_ = In("ea");
  std::string failing_angle_ = "-";
  std::map<std::string, std::string> reports_;
};

// ---- The reference ----

TEST_F(OrientationTest, WithoutAThumbnailNothingIsRotated) {
  WriteFile(ea_ + "/KELDOPHOTO_THUMB_OTHER.jpg", "x");
  EXPECT_EQ(Detect(), 0);
  EXPECT_TRUE(fake().runs.empty());
  EXPECT_TRUE(fake().popens.empty());
  ExpectNoLog();
}

TEST_F(OrientationTest, TheLargestThumbnailIsTheReferenceWhateverItsPhaseAndSpelling) {
  SetSource(4000, 3000);
  Thumbnail("KELDOPHOTO_THUMB_S.jpg", 90, 120);
  Thumbnail("KELDOPHOTO_THUMB_M.jpg", 240, 320);
  const std::string reference = Thumbnail("KELDOPHOTO:THUMB_L.jpg", 600, 800);
  SetDifferences({{"Temp_90.jpg", "10 (0.1)\n"}, {"Temp_270.jpg", "20 (0.2)\n"}});
  EXPECT_EQ(Detect(), 90);

  // Rendered as the reference's profile says.
  ASSERT_EQ(fake().runs.size(), 2u);
  EXPECT_EQ(ArgumentOf(fake().runs[0], "-thumbnail"), "800x800>^");
  EXPECT_EQ(ArgumentOf(fake().runs[0], "-quality"), "85");
  EXPECT_EQ(fake().runs[0].at(4), source_);
  ASSERT_EQ(fake().popens.size(), 2u);
  EXPECT_EQ(fake().popens[0].mode, "rE");
  EXPECT_EQ(fake().popens[0].argv, (Texts{"/usr/bin/compare", "-metric", "MAE",
                                          ea_ + "/Temp_270.jpg", reference, "null:"}));
  EXPECT_EQ(ReadFile(reference), "thumbnail");
}

TEST_F(OrientationTest, AMissingDirectoryIsMade) {
  EXPECT_EQ(DetectRawRotation({Dir(), &profiles_}, source_, In("new")), 0);
  EXPECT_EQ(Mode(In("new")), 0777u);
}

// ---- The two candidates ----

TEST_F(OrientationTest, AQuarterRotationIsTriedWhereOneIsPortraitAndTheOtherLandscape) {
  for (const auto& [width, height] : {std::pair{4000U, 3000U}, {3000U, 4000U}}) {
    fake().runs.clear();
    fake().popens.clear();
    SetSource(width, height);
    Thumbnail("KELDOPHOTO_THUMB_L.jpg", height / 5, width / 5);
    SetDifferences({{"Temp_90.jpg", "7 (0.1)\n"}, {"Temp_270.jpg", "6 (0.1)\n"}});
    EXPECT_EQ(Detect(), 270);
    EXPECT_EQ(Rendered(), (Texts{"90", "270"}));
    EXPECT_EQ(Compared(), (Texts{"Temp_270.jpg", "Temp_90.jpg"}));
    EXPECT_TRUE(IsClean());
  }
}

TEST_F(OrientationTest, AHalfRotationIsTriedOtherwise) {
  struct Shapes {
    std::pair<unsigned, unsigned> source;
    std::pair<unsigned, unsigned> thumbnail;
  };
  for (const Shapes& shapes :
       {Shapes{{4000, 3000}, {800, 600}}, Shapes{{3000, 4000}, {600, 800}},
        Shapes{{3000, 3000}, {600, 800}}, Shapes{{3000, 3000}, {800, 600}},
        Shapes{{4000, 3000}, {800, 800}}, Shapes{{3000, 4000}, {800, 800}}}) {
    fake().runs.clear();
    fake().popens.clear();
    SetSource(shapes.source.first, shapes.source.second);
    Thumbnail("KELDOPHOTO_THUMB_L.jpg", shapes.thumbnail.first, shapes.thumbnail.second);
    SetDifferences({{"Temp_0.jpg", "8 (0.1)\n"}, {"Temp_180.jpg", "7 (0.1)\n"}});
    EXPECT_EQ(Detect(), 180);
    EXPECT_EQ(Rendered(), (Texts{"", "180"}));
    EXPECT_EQ(Compared(), (Texts{"Temp_180.jpg", "Temp_0.jpg"}));
    EXPECT_TRUE(IsClean());
  }
}

TEST_F(OrientationTest, AnImageThatCannotBeMeasuredIsTriedUpsideDown) {
  Thumbnail("KELDOPHOTO_THUMB_L.jpg", 600, 800);
  EXPECT_EQ(Detect(), 0);
  EXPECT_EQ(Rendered(), (Texts{"", "180"}));
  fake().runs.clear();
  fake().image_sizes.clear();
  SetSource(4000, 3000);
  EXPECT_EQ(Detect(), 0);
  EXPECT_EQ(Rendered(), (Texts{"", "180"}));
}

TEST_F(OrientationTest, TheFirstCandidateWinsATie) {
  Thumbnail("KELDOPHOTO_THUMB_L.jpg", 600, 800);
  SetSource(4000, 3000);
  SetDifferences({{"Temp_90.jpg", "7.9 (0.1)\n"}, {"Temp_270.jpg", "7.1 (0.1)\n"}});
  EXPECT_EQ(Detect(), 90);
  SetSource(3000, 4000);
  SetDifferences({{"Temp_0.jpg", "7 (0.1)\n"}, {"Temp_180.jpg", "7 (0.1)\n"}});
  EXPECT_EQ(Detect(), 0);
}

TEST_F(OrientationTest, TheFirstCandidateWinsWhereItIsCloser) {
  Thumbnail("KELDOPHOTO_THUMB_L.jpg", 600, 800);
  SetSource(4000, 3000);
  SetDifferences({{"Temp_90.jpg", "6 (0.1)\n"}, {"Temp_270.jpg", "7 (0.1)\n"}});
  EXPECT_EQ(Detect(), 90);
}

TEST_F(OrientationTest, FailedMeasurementsTakePartInTheChoice) {
  Thumbnail("KELDOPHOTO_THUMB_L.jpg", 600, 800);
  SetSource(4000, 3000);
  fake().FailAlways("KLIBCPopen");
  EXPECT_EQ(Detect(), 90);
  EXPECT_EQ(CapturedSyslog().size(), 2u);

  fake().Reset();
  SetUp();
  Thumbnail("KELDOPHOTO_THUMB_L.jpg", 600, 800);
  SetSource(4000, 3000);
  SetDifferences({{"Temp_90.jpg", "rubbish\n"}, {"Temp_270.jpg", "65534 (0.9)\n"}});
  EXPECT_EQ(Detect(), 270);
}

// ---- Failure and clean-up ----

TEST_F(OrientationTest, AFailedRenderingEndsTheDetection) {
  Thumbnail("KELDOPHOTO_THUMB_L.jpg", 600, 800);
  SetDifferences({{"Temp_180.jpg", "1 (0.1)\n"}, {"Temp_270.jpg", "1 (0.1)\n"}});
  for (const auto& [width, first, second] : {std::tuple{4000U, "90", "270"}, {1000U, "", "180"}}) {
    SetSource(width, 3000);
    fake().runs.clear();
    failing_angle_ = first;
    EXPECT_EQ(Detect(), 0);
    EXPECT_EQ(Rendered(), (Texts{first}));
    EXPECT_TRUE(IsClean());

    fake().runs.clear();
    failing_angle_ = second;
    EXPECT_EQ(Detect(), 0);
    EXPECT_EQ(Rendered(), (Texts{first, second}));
    EXPECT_TRUE(IsClean());
  }
  EXPECT_TRUE(fake().popens.empty());
}

TEST_F(OrientationTest, StrayRenderingsAreRemovedOnEveryPath) {
  for (const bool with_thumbnail : {false, true}) {
    if (with_thumbnail) Thumbnail("KELDOPHOTO_THUMB_L.jpg", 600, 800);
    for (const char* name : {"Temp_5.jpg", "Temp_.jpg", "Temp_0.png", "xTemp_0.jpg"}) {
      WriteFile(ea_ + "/" + name, "x");
    }
    EXPECT_EQ(Detect(), 0);
    EXPECT_FALSE(Exists(ea_ + "/Temp_5.jpg"));
    EXPECT_FALSE(Exists(ea_ + "/Temp_.jpg"));
    EXPECT_TRUE(Exists(ea_ + "/Temp_0.png"));
    EXPECT_TRUE(Exists(ea_ + "/xTemp_0.jpg"));
  }
}

TEST_F(OrientationTest, ACleanUpThatFailsIsLoggedAndTheResultKept) {
  MakeDir(ea_ + "/Temp_5.jpg");
  Thumbnail("KELDOPHOTO_THUMB_L.jpg", 600, 800);
  SetSource(4000, 3000);
  SetDifferences({{"Temp_90.jpg", "7 (0.1)\n"}, {"Temp_270.jpg", "6 (0.1)\n"}});
  EXPECT_EQ(Detect(), 270);
  ExpectOneLog(LOG_ERR,
               "keldothumb:1094 Failed to remove files by pattern [" + ea_ + "/Temp_*.jpg]");
  EXPECT_EQ(fake().CallsOf({"AppLogError"}), (Texts{"AppLogError(3)"}));
  EXPECT_TRUE(IsClean());
}

// ---- The comparison ----

TEST_F(OrientationTest, TheWholeNumberPartOfTheErrorIsRead) {
  const auto difference = [](const std::string& output) {
    fake().on_popen = [output](const PopenCall&) { return output; };
    return CompareImagesMAE("/a", "/b");
  };
  EXPECT_EQ(difference("1234.56 (0.0188)"), 1234);
  EXPECT_EQ(difference("1234.56 (0.0188)\n"), 1234);
  EXPECT_EQ(difference("0 (0)\n"), 0);
  EXPECT_EQ(difference("7 (0.1)\n9 (0.2)\n"), 7);
  EXPECT_EQ(difference("compare: unable to open image\n"), 0);
  // Without a space it is not a measurement.
  EXPECT_EQ(difference("1234.56\n"), 65535);
  EXPECT_EQ(difference("1234.56"), 65535);
  EXPECT_EQ(difference("error\n12 (0.1)\n"), 65535);
  EXPECT_EQ(difference("\n"), 65535);
  EXPECT_EQ(difference(""), 65535);
  // A line is read up to 255 characters.
  EXPECT_EQ(difference(std::string(253, '0') + "7 (0.1)\n"), 7);
  EXPECT_EQ(difference(std::string(254, '0') + "7 (0.1)\n"), 65535);
  ExpectNoLog();
}

TEST_F(OrientationTest, TheExitStatusOfCompareIsIgnored) {
  // It exits with 1 for images that differ.
  fake().popen_status = 256;
  fake().on_popen = [](const PopenCall&) { return "12.5 (0.1)\n"; };
  EXPECT_EQ(CompareImagesMAE("/a", "/b"), 12);
}

TEST_F(OrientationTest, ACompareThatCannotBeStartedIsLogged) {
  fake().FailCall("KLIBCPopen");
  EXPECT_EQ(CompareImagesMAE("/v/a b.jpg", "/v/t.jpg"), 65535);
  ExpectOneLog(LOG_ERR,
               "keldothumb:1011 [Error] KLIBCPopen: /usr/bin/compare -metric MAE /v/a b.jpg "
               "/v/t.jpg null:");
}

}  // namespace
}  // namespace keldo::testing
