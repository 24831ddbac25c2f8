#include "render/convert_command.h"

#include <cstdlib>
#include <stdexcept>

#include "fakes/converter.h"
#include "fakes/core_test.h"
#include "thumbs/paths.h"

namespace keldo::testing {
namespace {

using Texts = std::vector<std::string>;

ThumbRequest MakeRequest(int side, const std::string& temp_path) {
  ThumbRequest request;
  request.width = side;
  request.height = side;
  request.tempPath = temp_path;
  return request;
}

class ConvertCommandTest : public CoreTest {
 protected:
  void TearDown() override {
    unsetenv("KELDO_CODEC_PKG_NAME");
    CoreTest::TearDown();
  }

  // What follows the program and its own name on the command line.
  static Texts ArgumentsFor(const ThumbRequestList& list, const std::string& input = "in.jpg",
                            const std::string& icc = "") {
    fake().runs.clear();
    EXPECT_TRUE(RunConvert(list, input, icc));
    EXPECT_EQ(fake().runs.size(), 1u);
    const Command& command = fake().runs.at(0);
    EXPECT_EQ(command.at(0), paths::kSystemConverter);
    EXPECT_EQ(command.at(1), paths::kSystemConverter);
    return {command.begin() + 2, command.end()};
  }

  static Texts OptionsOf(const ThumbRequest& request) {
    KELDOUtils::ProcessRunner runner("p", "p");
    AddThumbnailOptions(runner, request);
    EXPECT_EQ(runner.run(true, false), 0);
    return {fake().runs.back().begin() + 2, fake().runs.back().end()};
  }
};

TEST_F(ConvertCommandTest, ThreeThumbnailsShareOneDecodedPhoto) {
  ThumbRequestList list{MakeRequest(1280, "T1"), MakeRequest(320, "T2"), MakeRequest(120, "T3")};
  list[0].tempDir = "/v/@eaDir/a.jpg";
  list[0].fill = true;
  list[0].rotate = 90;
  EXPECT_EQ(ArgumentsFor(list, "/v/@eaDir/a.jpg/B"),
            (Texts{"-define", "registry:temporary-path=/v/@eaDir/a.jpg", "/v/@eaDir/a.jpg/B",
                   // The largest, from the photo.
                   "(", "-clone", "0", "-define", "jpeg:size=1280x1280", "-thumbnail",
                   "1280x1280>^", "-quality", "90", "+profile", "!icc,*", "-flatten", "-rotate",
                   "90", "-colorspace", "sRGB", "-write", "T1", ")", "-delete", "0",
                   // The next, from a clone of the largest.
                   "(", "+clone", "-define", "jpeg:size=320x320", "-thumbnail", "320x320>",
                   "-quality", "90", "+profile", "!icc,*", "-flatten", "-colorspace", "sRGB",
                   "-write", "T2", "+delete", ")",
                   // The last, from the largest itself.
                   "-define", "jpeg:size=120x120", "-thumbnail", "120x120>", "-quality", "90",
                   "+profile", "!icc,*", "-flatten", "-colorspace", "sRGB", "T3"}));
}

TEST_F(ConvertCommandTest, OneThumbnailNeedsNoGroup) {
  EXPECT_EQ(ArgumentsFor({MakeRequest(640, "T1")}),
            (Texts{"in.jpg", "-define", "jpeg:size=640x640", "-thumbnail", "640x640>", "-quality",
                   "90", "+profile", "!icc,*", "-flatten", "-colorspace", "sRGB", "T1"}));
}

TEST_F(ConvertCommandTest, TwoThumbnailsHaveNoMiddleGroup) {
  EXPECT_EQ(ArgumentsFor({MakeRequest(640, "T1"), MakeRequest(320, "T2")}),
            (Texts{"in.jpg",     "(",
                   "-clone",     "0",
                   "-define",    "jpeg:size=640x640",
                   "-thumbnail", "640x640>",
                   "-quality",   "90",
                   "+profile",   "!icc,*",
                   "-flatten",   "-colorspace",
                   "sRGB",       "-write",
                   "T1",         ")",
                   "-delete",    "0",
                   "-define",    "jpeg:size=320x320",
                   "-thumbnail", "320x320>",
                   "-quality",   "90",
                   "+profile",   "!icc,*",
                   "-flatten",   "-colorspace",
                   "sRGB",       "T2"}));
}

TEST_F(ConvertCommandTest, EveryThumbnailBetweenFirstAndLastIsAMiddleOne) {
  const Texts arguments = ArgumentsFor({MakeRequest(800, "T1"), MakeRequest(640, "T2"),
                                        MakeRequest(320, "T3"), MakeRequest(120, "T4")});
  EXPECT_EQ(std::count(arguments.begin(), arguments.end(), "-clone"), 1);
  EXPECT_EQ(std::count(arguments.begin(), arguments.end(), "+clone"), 2);
  EXPECT_EQ(std::count(arguments.begin(), arguments.end(), "+delete"), 2);
  EXPECT_EQ(OutputsOf(arguments), (Texts{"T1", "T2", "T3", "T4"}));
}

TEST_F(ConvertCommandTest, NoThumbnailGivesNoGroup) {
  EXPECT_EQ(ArgumentsFor({}), (Texts{"in.jpg"}));
}

TEST_F(ConvertCommandTest, PlainRunHasNoProfile) {
  EXPECT_TRUE(RunConvertPlain({MakeRequest(640, "T1")}, "in.jpg"));
  EXPECT_EQ(fake().runs.at(0).at(2), "in.jpg");
  EXPECT_EQ(ArgumentOf(fake().runs.at(0), "-profile"), "");
}

TEST_F(ConvertCommandTest, OnlyTheFirstPageOfAMultiPageFileIsRead) {
  for (const char* name : {"/v/a.gif", "/v/a.TIFF", "/v/a.HEIC", "/v/a b.psd"}) {
    EXPECT_EQ(ArgumentsFor({}, name), (Texts{std::string(name) + "[0]"}));
  }
  for (const char* name : {"/v/a.jpg", "/v/a.png", "/v/a.gif/b.jpg"}) {
    EXPECT_EQ(ArgumentsFor({}, name), (Texts{name}));
  }
}

TEST_F(ConvertCommandTest, AnyBytesOfANameArePassedOn) {
  const std::string name = "/v/-a \"'@%[1]*\n\xff.jpg";
  EXPECT_EQ(ArgumentsFor({}, name), (Texts{name}));
}

TEST_F(ConvertCommandTest, LongArgumentsAreCut) {
  const std::string directory = "/" + std::string(5000, 'd');
  EXPECT_EQ(ArgumentsFor({}, directory + ".jpg"), (Texts{directory.substr(0, 4095)}));
  // The mark of the first page does not fit whole.
  const std::string exact = "/" + std::string(4089, 'd') + ".gif";
  ASSERT_EQ(exact.size(), 4094u);
  EXPECT_EQ(ArgumentsFor({}, exact), (Texts{exact + "["}));

  ThumbRequest request;
  request.tempDir = directory;
  KELDOUtils::ProcessRunner runner("p", "p");
  AddTemporaryPathDefine({request}, runner);
  EXPECT_EQ(runner.run(true, false), 0);
  const std::string define = "registry:temporary-path=" + directory;
  EXPECT_EQ(fake().runs.back(), (Texts{"p", "p", "-define", define.substr(0, 4095)}));
}

// ---- Temporary directory ----

TEST_F(ConvertCommandTest, TheFirstRequestNamesTheTemporaryDirectory) {
  ThumbRequestList list{MakeRequest(640, "T1"), MakeRequest(320, "T2")};
  list[1].tempDir = "/second";
  EXPECT_EQ(ArgumentsFor(list).at(0), "in.jpg");
  list[0].tempDir = "/first";
  const Texts arguments = ArgumentsFor(list);
  EXPECT_EQ(arguments.at(0), "-define");
  EXPECT_EQ(arguments.at(1), "registry:temporary-path=/first");
  EXPECT_EQ(arguments.at(2), "in.jpg");
}

TEST_F(ConvertCommandTest, PercentSignsOfTheTemporaryDirectoryAreEscaped) {
  ThumbRequest request = MakeRequest(640, "T1");
  request.tempDir = "/v/100%/%d.jpg";
  EXPECT_EQ(ArgumentsFor({request}).at(1), "registry:temporary-path=/v/100%%/%%d.jpg");
}

// ---- Threads ----

TEST_F(ConvertCommandTest, ASmallMachineConvertsOnOneThread) {
  ThumbRequest request = MakeRequest(640, "T1");
  request.tempDir = "/t";
  const auto start = [&](std::optional<long> memory_kib) {
    fake().total_memory_kib = memory_kib;
    const Texts arguments = ArgumentsFor({request});
    return Texts{arguments.begin() + 2, arguments.begin() + 6};
  };
  const Texts limited{"-limit", "thread", "1", "in.jpg"};
  EXPECT_EQ(start(524287), limited);
  EXPECT_EQ(start(std::nullopt), limited);
  EXPECT_EQ(start(524288).at(0), "in.jpg");
}

// ---- ICC profile ----

TEST_F(ConvertCommandTest, AProfileThatHasBytesIsAttached) {
  const std::string icc = WriteFile(In("p.icc"), "x");
  const Texts arguments = ArgumentsFor({MakeRequest(640, "T1")}, "in.jpg", icc);
  EXPECT_EQ((Texts{arguments.begin(), arguments.begin() + 4}),
            (Texts{"in.jpg", "-profile", icc, "-define"}));
}

TEST_F(ConvertCommandTest, AMissingOrEmptyProfileIsLeftOut) {
  for (const std::string& icc :
       {In("missing.icc"), WriteFile(In("empty.icc"), ""), std::string()}) {
    EXPECT_EQ(ArgumentOf(ArgumentsFor({MakeRequest(640, "T1")}, "in.jpg", icc), "-profile"), "")
        << icc;
  }
}

// ---- Program and result ----

TEST_F(ConvertCommandTest, TheCodecPackagesConverterIsPreferred) {
  WriteFile(fake().Real(paths::kCodecPackageMarker), "");
  EXPECT_TRUE(RunConvertPlain({}, "in.jpg"));
  const std::string converter = "/var/packages/Vantrel/target/pack/usr/bin/convert";
  EXPECT_EQ(fake().runs.at(0), (Texts{converter, converter, "in.jpg"}));
}

TEST_F(ConvertCommandTest, OnlyStatusZeroIsSuccess) {
  const std::string output = WriteFile(In("T1.jpg"), "half");
  for (const int status : {0, 1, 2, 256, -1}) {
    fake().on_run = [&](const Command&) { return status; };
    EXPECT_EQ(RunConvertPlain({MakeRequest(640, output)}, "in.jpg"), status == 0) << status;
  }
  EXPECT_EQ(fake().CallsOf({"ProcessRunner::run"}),
            Texts(5, "ProcessRunner::run(/usr/keldo/bin/convert-thumb, true, false)"));
  EXPECT_TRUE(Exists(output));
  ExpectNoLog();
}

// ---- Options ----

TEST_F(ConvertCommandTest, AllOptionsStandInTheirOrder) {
  ThumbRequest request;
  request.width = 800;
  request.height = 600;
  request.quality = 75;
  request.fill = true;
  request.autoOrient = true;
  request.rotate = 270;
  request.flop = true;
  request.unsharp = "0.5x1+1.25+0";
  request.colorspace = "YCbCr";
  EXPECT_EQ(OptionsOf(request),
            (Texts{"-define", "jpeg:size=800x600", "-thumbnail", "800x600>^", "-quality", "75",
                   "+profile", "!icc,*", "-flatten", "-auto-orient", "-rotate", "270", "-flop",
                   "-unsharp", "0.5x1+1.25+0", "-colorspace", "YCbCr"}));
}

TEST_F(ConvertCommandTest, OptionsThatAreOffAreLeftOut) {
  ThumbRequest request;
  request.stripProfiles = false;
  request.flatten = false;
  request.colorspace = "";
  const Texts least{"-define", "jpeg:size=320x320", "-thumbnail", "320x320>", "-quality", "90"};
  for (const int no_rotation : {0, -1, -90}) {
    request.rotate = no_rotation;
    EXPECT_EQ(OptionsOf(request), least) << no_rotation;
  }
  request.rotate = 1;
  EXPECT_EQ(OptionsOf(request).size(), least.size() + 2);
}

// ---- Orientation ----

struct Orientation {
  int orientation;
  bool flop;
  int rotate;
};

TEST_F(ConvertCommandTest, OrientationsBecomeARotationAndAMirror) {
  constexpr int kUnchanged = -1;
  for (const Orientation& expected :
       {Orientation{0, false, kUnchanged}, Orientation{1, false, kUnchanged},
        Orientation{2, true, kUnchanged}, Orientation{3, false, 180}, Orientation{4, true, 180},
        Orientation{5, true, 90}, Orientation{6, false, 90}, Orientation{7, true, 270},
        Orientation{8, false, 270}, Orientation{9, false, kUnchanged},
        Orientation{-1, false, kUnchanged}}) {
    SCOPED_TRACE(expected.orientation);
    ThumbRequestList list{MakeRequest(640, "T1"), MakeRequest(320, "T2")};
    keldoindexutils::MediaInfo media;
    media.photo_rotation(expected.orientation);
    ApplyPhotoRotation(list, media);
    EXPECT_EQ(list[0].flop, expected.flop);
    EXPECT_EQ(list[0].rotate, expected.rotate);
    EXPECT_FALSE(list[1].flop);
    EXPECT_EQ(list[1].rotate, kUnchanged);
  }
}

TEST_F(ConvertCommandTest, AnOrientationChangesOnlyRotationAndMirror) {
  keldoindexutils::MediaInfo media;
  ThumbRequest request;
  request.flop = true;
  request.rotate = 45;
  ThumbRequestList list{request};
  media.photo_rotation(1);
  ApplyPhotoRotation(list, media);
  EXPECT_TRUE(list[0].flop);
  media.photo_rotation(2);
  ApplyPhotoRotation(list, media);
  EXPECT_EQ(list[0].rotate, 45);
  media.photo_rotation(3);
  ApplyPhotoRotation(list, media);
  EXPECT_TRUE(list[0].flop);
  EXPECT_EQ(list[0].rotate, 180);
}

TEST_F(ConvertCommandTest, AnEmptyListCannotBeRotated) {
  ThumbRequestList list;
  EXPECT_THROW(ApplyPhotoRotation(list, {}), std::out_of_range);
}

}  // namespace
}  // namespace keldo::testing
