#include "render/pipeline.h"

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <utility>

#include "fakes/converter.h"
#include "fakes/core_test.h"
#include "thumbs/paths.h"

namespace keldo::testing {
namespace {

using ::testing::MatchesRegex;
using Texts = std::vector<std::string>;

constexpr const char* kTempName = ".*/ea/KELDOPHOTO\\.tmp\\.[A-Za-z0-9]{6}\\.jpg";

keldoindexutils::MediaInfo Sized(int width, int height, int orientation = 1) {
  keldoindexutils::MediaInfo media;
  media.resolution_x(width);
  media.resolution_y(height);
  media.photo_rotation(orientation);
  return media;
}

class PipelineTest : public CoreTest {
 protected:
  void SetUp() override {
    CoreTest::SetUp();
    fake().on_run = [this](const Command& command) { return Run(command); };
  }

  // What the programs do: each writes its files, unless the test lets it fail.
  int Run(const Command& command) {
    if (command[0] == paths::kDjpeg) {
      WriteFile(ArgumentOf(command, "-outfile"), "bitmap");
      WriteFile(ArgumentOf(command, "-icc"), icc_profile_);
      return djpeg_status_;
    }
    if (on_convert_) on_convert_();
    if (bitmap_status_ != 0 && command.at(2) == bitmap_) return bitmap_status_;
    WriteOutputs(command);
    return converter_status_;
  }

  void Add(ThumbRequestList& list, const std::string& photo, int side) const {
    ThumbRequest request;
    request.sourcePath = photo;
    request.width = side;
    request.height = side;
    request.destPath = In("ea/" + std::to_string(side) + ".jpg");
    AddThumbRequest(list, request);
  }

  // A photo and the requests for these box sides.
  [[nodiscard]] ThumbRequestList RequestsFor(const std::string& name,
                                             const std::vector<int>& sides) {
    MakeDir(In("ea"));
    const std::string photo = WriteFile(In(name), "photo");
    ThumbRequestList list;
    for (const int side : sides)
      Add(list, photo, side);
    return list;
  }

  // The programs that ran, in order.
  [[nodiscard]] static Texts Programs() {
    Texts programs;
    for (const Command& command : fake().runs)
      programs.push_back(command[0]);
    return programs;
  }

  [[nodiscard]] bool HasSideFiles() const {
    return Exists(In("ea/KELDOPHOTO_PROFILE.icc")) ||
           Exists(ArgumentOf(fake().runs.at(0), "-outfile"));
  }

  int djpeg_status_ = 0;
  int converter_status_ = 0;
  std::string icc_profile_;
  std::function<void()> on_convert_;
  int bitmap_status_ = 0;
  std::string bitmap_;
};

// ---- The entry ----

TEST_F(PipelineTest, AnEmptyListTouchesNothing) {
  ThumbRequestList list;
  EXPECT_TRUE(CreatePhotoThumbnails(list));
  EXPECT_EQ(fake().calls, Texts{});
  ExpectNoLog();
}

TEST_F(PipelineTest, ThumbnailsAreRenderedWidestFirstAndCommitted) {
  ThumbRequestList list = RequestsFor("a.png", {240, 800, 320});
  const Texts temporaries{list[1].tempPath, list[2].tempPath, list[0].tempPath};
  EXPECT_TRUE(CreatePhotoThumbnails(list));
  ASSERT_EQ(Programs(), (Texts{paths::kSystemConverter}));
  EXPECT_EQ(fake().runs[0].at(2), In("a.png"));
  EXPECT_EQ(OutputsOf(fake().runs[0]), temporaries);
  for (const char* name : {"ea/800.jpg", "ea/320.jpg", "ea/240.jpg"}) {
    EXPECT_EQ(ReadFile(In(name)), "thumbnail") << name;
    EXPECT_EQ(Mode(In(name)), 0644u) << name;
  }
  ExpectNoLog();
}

TEST_F(PipelineTest, AMissingPhotoIsLogged) {
  ThumbRequestList list;
  Add(list, In("none.jpg"), 640);
  EXPECT_FALSE(CreatePhotoThumbnails(list));
  ExpectOneLog(LOG_ERR, "keldomk_photo_thumb:122 [Error] failed to stat file: " + In("none.jpg"));
  EXPECT_EQ(Programs(), Texts{});
}

TEST_F(PipelineTest, OnlyARegularFileIsAPhoto) {
  const std::string pipe = In("pipe.jpg");
  ASSERT_EQ(mkfifo(pipe.c_str(), 0666), 0);
  for (const std::string& source : {MakeDir(In("d.jpg")), std::string("/dev/null"), pipe}) {
    ClearSyslog();
    ThumbRequestList list;
    Add(list, source, 640);
    EXPECT_FALSE(CreatePhotoThumbnails(list));
    ExpectOneLog(LOG_ERR, "keldomk_photo_thumb:126 [Error] not a regular file: " + source);
  }
  EXPECT_EQ(Programs(), Texts{});
}

TEST_F(PipelineTest, AFailedRunIsSilentAndLeavesItsTemporaries) {
  converter_status_ = 1;
  ThumbRequestList list = RequestsFor("a.png", {640, 320});
  EXPECT_FALSE(CreatePhotoThumbnails(list));
  for (const ThumbRequest& request : list) {
    EXPECT_TRUE(Exists(request.tempPath));
    EXPECT_FALSE(Exists(request.destPath));
  }
  ExpectNoLog();
}

TEST_F(PipelineTest, APhotoThatGrewMeanwhileIsNotCommitted) {
  ThumbRequestList list = RequestsFor("a.png", {640});
  struct stat before {};
  ASSERT_EQ(stat(In("a.png").c_str(), &before), 0);
  struct stat after {};
  on_convert_ = [&] {
    WriteFile(In("a.png"), std::string(100000, 'x'));
    ASSERT_EQ(stat(In("a.png").c_str(), &after), 0);
    ASSERT_NE(after.st_blocks, before.st_blocks);
  };
  EXPECT_FALSE(CreatePhotoThumbnails(list));
  ExpectOneLog(LOG_ERR, "keldomk_photo_thumb:484 [Error] file size changed: st_blocks " +
                            std::to_string(before.st_blocks) + " -> " +
                            std::to_string(after.st_blocks) + "; st_size 5 -> 100000, " +
                            In("a.png"));
  EXPECT_FALSE(Exists(list[0].tempPath));
  EXPECT_FALSE(Exists(list[0].destPath));
}

TEST_F(PipelineTest, APhotoRewrittenInTheSameBlocksIsCommitted) {
  ThumbRequestList list = RequestsFor("a.png", {640});
  struct stat before {};
  ASSERT_EQ(stat(In("a.png").c_str(), &before), 0);
  on_convert_ = [&] {
    WriteFile(In("a.png"), "another photo");
    struct stat after {};
    ASSERT_EQ(stat(In("a.png").c_str(), &after), 0);
    ASSERT_EQ(after.st_blocks, before.st_blocks);
  };
  EXPECT_TRUE(CreatePhotoThumbnails(list));
  EXPECT_TRUE(Exists(list[0].destPath));
}

// ---- The choice of the fast decoder ----

TEST_F(PipelineTest, OnlyAJpegWithTheLargestBoxAsksForItsSize) {
  fake().FailAlways("KELDOIDX_GetMediaInfo");
  for (const char* name : {"a.png", "a.heic", "jpg", "a.jpg.gif"}) {
    ThumbRequestList list = RequestsFor(name, {1280, 640});
    EXPECT_TRUE(CreatePhotoThumbnails(list)) << name;
  }
  for (const auto& [width, height] : {std::pair{1279, 1280}, {1280, 1279}, {1281, 1281}}) {
    ThumbRequestList list = RequestsFor("a.jpg", {1280});
    list[0].width = width;
    list[0].height = height;
    EXPECT_TRUE(CreatePhotoThumbnails(list)) << width << 'x' << height;
  }
  EXPECT_EQ(fake().CallsOf({"KELDOIDX_GetMediaInfo"}), Texts{});
  EXPECT_EQ(Programs(), Texts(7, paths::kSystemConverter));
}

TEST_F(PipelineTest, AJpegThatCannotBeMeasuredIsNotRendered) {
  ThumbRequestList list = RequestsFor("a.jpg", {640, 1280});
  EXPECT_FALSE(CreatePhotoThumbnails(list));
  EXPECT_EQ(fake().CallsOf({"KELDOIDX_GetMediaInfo"}),
            (Texts{"KELDOIDX_GetMediaInfo(" + In("a.jpg") + ")"}));
  EXPECT_EQ(Programs(), Texts{});
  ExpectNoLog();
}

TEST_F(PipelineTest, ASmallJpegGoesStraightToTheConverter) {
  fake().media_info[In("a.jpg")] = Sized(2000, 1500, 6);
  ThumbRequestList list = RequestsFor("a.jpg", {1280});
  EXPECT_TRUE(CreatePhotoThumbnails(list));
  EXPECT_EQ(Programs(), (Texts{paths::kSystemConverter}));
  EXPECT_EQ(ArgumentOf(fake().runs[0], "-rotate"), "");
}

TEST_F(PipelineTest, ALargeJpegIsDecodedAtTheLargestReduction) {
  for (const auto& [name, width, height, scale] : {std::tuple{"a.jpg", 5000, 4000, "1/2"},
                                                   {"b.JPEG", 12000, 9000, "1/4"},
                                                   {"c.jpe", 10240, 10240, "1/8"}}) {
    fake().runs.clear();
    fake().media_info[In(name)] = Sized(width, height);
    ThumbRequestList list = RequestsFor(name, {320, 1280});
    EXPECT_TRUE(CreatePhotoThumbnails(list)) << name;
    ASSERT_EQ(Programs(), (Texts{paths::kDjpeg, paths::kSystemConverter})) << name;
    EXPECT_EQ(ArgumentOf(fake().runs[0], "-scale"), scale) << name;
  }
}

TEST_F(PipelineTest, TheReductionLeavesThePhotoAtLeastAsLargeAsTheBox) {
  const auto shift = [](int width, int height) {
    return PrescaleShift(1280, 640, Sized(width, height));
  };
  EXPECT_EQ(shift(10240, 5120), 3);
  EXPECT_EQ(shift(10239, 5120), 2);
  EXPECT_EQ(shift(10240, 5119), 2);
  EXPECT_EQ(shift(10247, 5127), 3);
  EXPECT_EQ(shift(5120, 2560), 2);
  EXPECT_EQ(shift(5119, 2560), 1);
  EXPECT_EQ(shift(5120, 2559), 1);
  EXPECT_EQ(shift(2560, 1280), 1);
  EXPECT_EQ(shift(2559, 1280), 0);
  EXPECT_EQ(shift(2560, 1279), 0);
  EXPECT_EQ(shift(100000, 1), 0);
  EXPECT_EQ(shift(0, 0), 0);
  EXPECT_EQ(shift(-1, -1), 0);
}

// ---- By way of djpeg ----

TEST_F(PipelineTest, DjpegWritesABitmapThatTheConverterReads) {
  fake().media_info[In("a.jpg")] = Sized(5000, 4000, 7);
  icc_profile_ = "profile";
  ThumbRequestList list = RequestsFor("a.jpg", {1280, 320});
  EXPECT_TRUE(CreatePhotoThumbnails(list));
  ASSERT_EQ(fake().runs.size(), 2u);
  const std::string bitmap = ArgumentOf(fake().runs[0], "-outfile");
  const std::string icc = In("ea/KELDOPHOTO_PROFILE.icc");
  EXPECT_THAT(bitmap, MatchesRegex(kTempName));
  EXPECT_EQ(fake().runs[0],
            (Texts{"/bin/djpeg", "/bin/djpeg", "-scale", "1/2", "-dct", "fast", "-fast", "-onepass",
                   "-bmp", "-outfile", bitmap, "-icc", icc, In("a.jpg")}));
  EXPECT_EQ(fake().runs[1],
            (Texts{"/usr/keldo/bin/convert-thumb", "/usr/keldo/bin/convert-thumb", bitmap,
                   "-profile", icc,
                   // The bitmap has no orientation tag.
                   "(", "-clone", "0", "-define", "jpeg:size=1280x1280", "-thumbnail", "1280x1280>",
                   "-quality", "90", "+profile", "!icc,*", "-flatten", "-rotate", "270", "-flop",
                   "-colorspace", "sRGB", "-write", list[0].tempPath, ")", "-delete", "0",
                   //
                   "-define", "jpeg:size=320x320", "-thumbnail", "320x320>", "-quality", "90",
                   "+profile", "!icc,*", "-flatten", "-colorspace", "sRGB", list[1].tempPath}));
  EXPECT_FALSE(HasSideFiles());
}

TEST_F(PipelineTest, APhotoWithoutAProfileGetsNone) {
  fake().media_info[In("a.jpg")] = Sized(5000, 4000);
  ThumbRequestList list = RequestsFor("a.jpg", {1280});
  EXPECT_TRUE(CreatePhotoThumbnails(list));
  EXPECT_EQ(ArgumentOf(fake().runs.at(1), "-profile"), "");
  EXPECT_FALSE(HasSideFiles());
}

TEST_F(PipelineTest, WhereDjpegFailsTheConverterReadsThePhoto) {
  fake().media_info[In("a.jpg")] = Sized(5000, 4000, 7);
  icc_profile_ = "profile";
  djpeg_status_ = 1;
  ThumbRequestList list = RequestsFor("a.jpg", {1280, 320});
  // What the caller asked for is forgotten too.
  list[1].rotate = 90;
  list[1].flop = true;
  EXPECT_TRUE(CreatePhotoThumbnails(list));
  ASSERT_EQ(Programs(), (Texts{paths::kDjpeg, paths::kSystemConverter}));
  const Command& command = fake().runs[1];
  EXPECT_EQ(command.at(2), In("a.jpg"));
  for (const char* option : {"-rotate", "-flop", "-profile"}) {
    EXPECT_EQ(std::count(command.begin(), command.end(), option), 0) << option;
  }
  for (const ThumbRequest& request : list) {
    EXPECT_EQ(request.rotate, 0);
    EXPECT_FALSE(request.flop);
  }
  EXPECT_FALSE(HasSideFiles());
  ExpectNoLog();
}

TEST_F(PipelineTest, WhereTheBitmapCannotBeConvertedThePhotoIsRead) {
  const auto media = Sized(5000, 4000, 6);
  ThumbRequestList list = RequestsFor("a.jpg", {1280});
  fake().on_run = [this](const Command& command) {
    if (command[0] == paths::kDjpeg) bitmap_ = ArgumentOf(command, "-outfile");
    return Run(command);
  };
  bitmap_status_ = 1;
  EXPECT_TRUE(ConvertViaDjpeg(list, media));
  ASSERT_EQ(Programs(), (Texts{paths::kDjpeg, paths::kSystemConverter, paths::kSystemConverter}));
  EXPECT_EQ(ArgumentOf(fake().runs[1], "-rotate"), "90");
  EXPECT_EQ(fake().runs[2].at(2), In("a.jpg"));
  EXPECT_EQ(ArgumentOf(fake().runs[2], "-rotate"), "");
  EXPECT_FALSE(HasSideFiles());
}

TEST_F(PipelineTest, WhereThePhotoCannotBeConvertedEitherTheRunFails) {
  djpeg_status_ = 1;
  converter_status_ = 1;
  ThumbRequestList list = RequestsFor("a.jpg", {1280});
  EXPECT_FALSE(ConvertViaDjpeg(list, Sized(5000, 4000)));
  EXPECT_EQ(Programs(), (Texts{paths::kDjpeg, paths::kSystemConverter}));
}

// ---- Names ----

TEST_F(PipelineTest, ATemporaryLiesBesideItsDestinationAndIsNotThereYet) {
  MakeDir(In("ea"));
  const std::string first = MakeTempPath(In("ea/a.jpg"));
  const std::string second = MakeTempPath(In("ea/a.jpg"));
  EXPECT_THAT(first, MatchesRegex(kTempName));
  EXPECT_THAT(second, MatchesRegex(kTempName));
  EXPECT_NE(first, second);
  EXPECT_EQ(first.substr(0, In("ea/").size()), In("ea/"));
  EXPECT_FALSE(Exists(first));
  EXPECT_FALSE(Exists(first.substr(0, first.size() - 4)));
}

TEST_F(PipelineTest, ATemporaryHasTheExtensionOfItsDestination) {
  EXPECT_THAT(MakeTempPath(In("a.b.PnG")),
              MatchesRegex(".*/KELDOPHOTO\\.tmp\\.[A-Za-z0-9]{6}\\.PnG"));
  EXPECT_THAT(MakeTempPath(In("none")), MatchesRegex(".*/KELDOPHOTO\\.tmp\\.[A-Za-z0-9]{6}"));
}

TEST_F(PipelineTest, WhereNoTemporaryCanBeMadeTheTemplateIsTheName) {
  EXPECT_EQ(MakeTempPath(In("none/a.jpg")), In("none/KELDOPHOTO.tmp.XXXXXX"));
}

TEST_F(PipelineTest, TheIccFileHasAFixedName) {
  EXPECT_EQ(MakeIccPath("/v/@eaDir/a.jpg/T.jpg"), "/v/@eaDir/a.jpg/KELDOPHOTO_PROFILE.icc");
}

TEST_F(PipelineTest, AddingARequestReservesItsTemporary) {
  ThumbRequest request;
  request.sourcePath = "/v/a.jpg";
  request.destPath = In("a.jpg");
  ThumbRequestList list;
  AddThumbRequest(list, request);
  ASSERT_EQ(list.size(), 1u);
  EXPECT_EQ(list[0].tempPath, request.tempPath);
  EXPECT_EQ(list[0].destPath, In("a.jpg"));
  EXPECT_EQ(FirstSourcePath(list), "/v/a.jpg");
  EXPECT_EQ(FirstSourcePath({}), "");
}

TEST_F(PipelineTest, TheWiderRequestComesFirst) {
  ThumbRequest wide;
  ThumbRequest narrow;
  wide.width = 321;
  narrow.height = 1000;
  EXPECT_TRUE(CompareRequestWidth(wide, narrow));
  EXPECT_FALSE(CompareRequestWidth(narrow, wide));
  EXPECT_FALSE(CompareRequestWidth(wide, wide));
}

}  // namespace
}  // namespace keldo::testing
