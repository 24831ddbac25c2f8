// Our converter makes the same thumbnails as ImageMagick from the same arguments: formats,
// rotations, sizes, options.
#include <gtest/gtest.h>

#include <algorithm>

#include "convert/comparison.h"
#include "fakes/fake_platform.h"
#include "render/convert_command.h"

namespace keldo::testing {
namespace {

constexpr const char* kUnsharp = "0.5x0.5+1.25+0";

TEST_F(ComparisonTest, TheArgumentsAreThoseOfThePhotoRun) {
  ThumbRequest first = Wanted(1280);
  first.tempPath = "T1";
  first.tempDir = "/v/100%";
  first.rotate = 90;
  ThumbRequest last = Wanted(120, false, kUnsharp);
  last.tempPath = "T2";
  EXPECT_EQ(Arguments({first, last}, "/v/a.heic"),
            (std::vector<std::string>{"-define",      "registry:temporary-path=/v/100%%",
                                      "/v/a.heic[0]", "(",
                                      "-clone",       "0",
                                      "-define",      "jpeg:size=1280x1280",
                                      "-thumbnail",   "1280x1280>^",
                                      "-quality",     "90",
                                      "+profile",     "!icc,*",
                                      "-flatten",     "-rotate",
                                      "90",           "-colorspace",
                                      "sRGB",         "-write",
                                      "T1",           ")",
                                      "-delete",      "0",
                                      "-define",      "jpeg:size=120x120",
                                      "-thumbnail",   "120x120>",
                                      "-quality",     "90",
                                      "+profile",     "!icc,*",
                                      "-flatten",     "-unsharp",
                                      kUnsharp,       "-colorspace",
                                      "sRGB",         "T2"}));
}

// ---- Formats ----

class FormatTest : public ComparisonTest, public ::testing::WithParamInterface<const char*> {};

std::vector<const char*> KindNames() {
  std::vector<const char*> names;
  for (const SourceKind& kind : SourceKinds())
    names.push_back(kind.name.data());
  return names;
}

// ImageMagick resizes CMYK, and the YCbCr of HEIF files; our converter resizes the RGB that they
// stand for.
Likeness LikenessOf(std::string_view kind) {
  if (kind == "JpegCmyk") return {.psnr = 39};
  return kind == "Heic" || kind == "Avif" ? Likeness{.psnr = 40} : Likeness{};
}

TEST_P(FormatTest, ThreeThumbnailsOfAPhoto) {
  Compare(ThreeThumbnails(), Source(GetParam(), 701, 525), LikenessOf(GetParam()));
}

TEST_P(FormatTest, OneSmallThumbnailWithoutSharpening) {
  Compare({Wanted(96, false)}, Source(GetParam(), 333, 500), LikenessOf(GetParam()));
}

INSTANTIATE_TEST_SUITE_P(All, FormatTest, ::testing::ValuesIn(KindNames()),
                         [](const auto& test) { return std::string(test.param); });

// ---- Rotations ----

class OrientationTest : public ComparisonTest, public ::testing::WithParamInterface<int> {};

TEST_P(OrientationTest, FromTheFile) {
  const std::string photo = Source("Jpeg422", 640, 427);
  WriteContent(photo, WithOrientation(ReadContent(photo), GetParam()));
  Compare(ThreeThumbnails(), photo, {});
}

TEST_P(OrientationTest, FromTheArguments) {
  ThumbRequestList list = ThreeThumbnails();
  for (ThumbRequest& request : list)
    request.autoOrient = false;
  keldoindexutils::MediaInfo media;
  media.photo_rotation(GetParam());
  ApplyPhotoRotation(list, media);
  Compare(list, Source("Bmp", 643, 421), {});
}

INSTANTIATE_TEST_SUITE_P(All, OrientationTest, ::testing::Range(1, 9));

TEST_F(ComparisonTest, EveryThumbnailCanBeRotated) {
  ThumbRequestList list = ThreeThumbnails();
  for (ThumbRequest& request : list)
    request.rotate = 90;
  list[1].flop = true;
  list[2].rotate = 270;
  Compare(list, Source("Png", 500, 300), {});
}

TEST_F(ComparisonTest, OrientationOfAFileAndOfTheArgumentsAddUp) {
  const std::string photo = Source("Jpeg420", 500, 300);
  WriteContent(photo, WithOrientation(ReadContent(photo), 6));
  ThumbRequestList list = ThreeThumbnails();
  list[0].rotate = 180;
  list[0].flop = true;
  Compare(list, photo, {});
}

TEST_F(ComparisonTest, OrientationIsIgnoredUnlessRequested) {
  const std::string photo = Source("Jpeg420", 500, 300);
  WriteContent(photo, WithOrientation(ReadContent(photo), 6));
  Compare({Wanted(100)}, photo, {});
}

// ---- Sizes ----

struct Sides {
  int width;
  int height;
};

void PrintTo(const Sides& sides, std::ostream* out) {
  *out << sides.width << 'x' << sides.height;
}

class SizeTest : public ComparisonTest, public ::testing::WithParamInterface<Sides> {
 protected:
  void CompareSizes(std::string_view kind) {
    const std::string photo = Source(kind, GetParam().width, GetParam().height);
    Compare({Wanted(320), Wanted(120, true, kUnsharp), Wanted(64, false, kUnsharp)}, photo, {});
    Compare({Wanted(320, false), Wanted(33, true), Wanted(7, false)}, photo, {});
    Compare({Wanted(1)}, photo, {});
  }
};

TEST_P(SizeTest, Jpeg) {
  CompareSizes("Jpeg420");
}
TEST_P(SizeTest, Bitmap) {
  CompareSizes("Bmp");
}
TEST_P(SizeTest, Png) {
  CompareSizes("Png");
}

INSTANTIATE_TEST_SUITE_P(All, SizeTest,
                         ::testing::Values(Sides{1, 1}, Sides{1, 2}, Sides{2, 1}, Sides{1, 7},
                                           Sides{9, 1}, Sides{3, 5}, Sides{17, 16}, Sides{64, 64},
                                           Sides{65, 63}, Sides{119, 121}, Sides{1, 640},
                                           Sides{700, 1}, Sides{320, 320}, Sides{321, 319},
                                           Sides{639, 641}, Sides{1601, 1201}, Sides{3000, 11},
                                           Sides{13, 2500}, Sides{20000, 10}, Sides{10, 20000}));

TEST_F(ComparisonTest, BoxesNeedNotBeSquare) {
  ThumbRequest wide = Wanted(300);
  wide.height = 50;
  ThumbRequest tall = Wanted(20, false);
  tall.height = 200;
  Compare({wide, tall}, Source("Bmp", 640, 480), {});
}

// For large reductions, point sampling comes before the filter.
TEST_F(ComparisonTest, LargeReductions) {
  const std::string photo = Source("Bmp", 2400, 1800);
  for (const int side : {26, 27, 60, 128, 240, 569, 570, 760}) {
    Compare({Wanted(side)}, photo, {});
    Compare({Wanted(side, false)}, photo, {});
  }
}

// ---- Chains and options ----

class CountTest : public ComparisonTest, public ::testing::WithParamInterface<int> {};

TEST_P(CountTest, EachIsMadeFromTheFirst) {
  ThumbRequestList list;
  for (int i = 0; i < GetParam(); ++i)
    list.push_back(Wanted(400 - 60 * i, i % 2 == 0, i % 3 == 0 ? "" : kUnsharp));
  Compare(list, Source("Jpeg444", 900, 700), {});
}

INSTANTIATE_TEST_SUITE_P(OneToSix, CountTest, ::testing::Range(1, 7));

class QualityTest : public ComparisonTest, public ::testing::WithParamInterface<int> {};

TEST_P(QualityTest, DecidesTheSampling) {
  for (const char* kind : {"Jpeg420", "Jpeg444", "JpegGray", "Bmp"}) {
    SCOPED_TRACE(kind);
    ThumbRequestList list = ThreeThumbnails();
    for (ThumbRequest& request : list)
      request.quality = GetParam();
    Compare(list, Source(kind, 640, 480), {});
  }
}

TEST_P(QualityTest, MayDifferFromOneThumbnailToTheNext) {
  ThumbRequestList list = ThreeThumbnails();
  list[1].quality = GetParam();
  Compare(list, Source("Bmp", 640, 480), {});
}

INSTANTIATE_TEST_SUITE_P(Some, QualityTest, ::testing::Values(50, 75, 89, 90, 95, 100));

class UnsharpTest : public ComparisonTest, public ::testing::WithParamInterface<const char*> {};

TEST_P(UnsharpTest, SharpensAlike) {
  Compare({Wanted(320, true, GetParam()), Wanted(100, false, GetParam())}, Source("Png", 640, 480),
          {});
}

INSTANTIATE_TEST_SUITE_P(Some, UnsharpTest,
                         ::testing::Values("0.5x0.5+1.25+0", "0x0.5+1.0+0", "0x1+1+0.05",
                                           "1x0.7+0.6+0.02", "2x1.4+0.8+0"));

TEST_F(ComparisonTest, OneThread) {
  fake().total_memory_kib = 300L << 10;
  const ThumbRequestList list = ThreeThumbnails();
  ASSERT_EQ(Arguments(list, "x").at(3), "thread");
  Compare(list, Source("Jpeg420", 640, 480), {});
}

// ImageMagick converts to that colour space and back, which costs some precision.
TEST_F(ComparisonTest, ColourSpaceOfHeicPhotos) {
  for (const char* kind : {"Heic", "Png"}) {
    SCOPED_TRACE(kind);
    ThumbRequestList list = ThreeThumbnails();
    for (ThumbRequest& request : list)
      request.colorspace = "YCbCr";
    Compare(list, Source(kind, 640, 480), {.psnr = 40});
  }
}

TEST_F(ComparisonTest, ColourSpaceLeftOut) {
  ThumbRequestList list = ThreeThumbnails();
  for (ThumbRequest& request : list)
    request.colorspace.clear();
  Compare(list, Source("Png", 640, 480), {});
}

TEST_F(ComparisonTest, LaterPhasesReadThumbnails) {
  ThumbRequestList list = {Wanted(200), Wanted(60, true, kUnsharp)};
  for (ThumbRequest& request : list)
    request.stripProfiles = false;
  Compare(list, Source("Jpeg444", 320, 427), {});
}

TEST_F(ComparisonTest, WithoutFlattening) {
  ThumbRequestList list = ThreeThumbnails();
  for (ThumbRequest& request : list)
    request.flatten = false;
  Compare(list, Source("Png", 640, 480), {});
  Compare(list, Source("Jpeg444", 640, 480), {});
}

// ---- Profiles ----

class ProfileTest : public ComparisonTest {
 protected:
  // Files that begin like colour profiles, since a converter may check: "acsp" at offset 36, and
  // the length in the first four bytes.
  static std::string Profile(std::size_t size) {
    std::string profile(size, '\0');
    for (std::size_t i = 0; i < 4; ++i)
      profile[i] = static_cast<char>(size >> (24 - 8 * i));
    profile.replace(8, 1, "\x04");
    profile.replace(12, 12, "mntrRGB XYZ ");
    profile.replace(36, 4, "acsp");
    for (std::size_t i = 132; i < size; ++i)
      profile[i] = static_cast<char>(i * 7);
    return profile;
  }

  std::string PhotoWith(const std::string& profile) const {
    const std::string file = WriteContent(In("embedded.icc"), profile);
    const std::string plain = WriteContent(In("p.ppm"), EncodePpm(NaturalImage(400, 300)));
    RunTool({"cjpeg", "-icc", file, "-outfile", In("p.jpg"), plain});
    return In("p.jpg");
  }
};

TEST_F(ProfileTest, IsAttached) {
  Compare(ThreeThumbnails(), Source("Bmp", 400, 300), {}, WriteContent(In("a.icc"), Profile(3144)));
}

TEST_F(ProfileTest, IsKept) {
  Compare(ThreeThumbnails(), PhotoWith(Profile(560)), {});
}

TEST_F(ProfileTest, IsKeptWhenNothingIsStripped) {
  ThumbRequestList list = ThreeThumbnails();
  for (ThumbRequest& request : list)
    request.stripProfiles = false;
  Compare(list, PhotoWith(Profile(560)), {});
}

TEST_F(ProfileTest, MayBeLongerThanASegment) {
  Compare(ThreeThumbnails(), PhotoWith(Profile(150'000)), {});
  Compare(ThreeThumbnails(), Source("Bmp", 400, 300), {},
          WriteContent(In("a.icc"), Profile(65'520)));
}

TEST_F(ProfileTest, OfOtherFormatsIsKept) {
  const std::string profile = WriteContent(In("a.icc"), Profile(560));
  const std::string plain = WriteContent(In("p.ppm"), EncodePpm(NaturalImage(400, 300)));
  for (const char* name : {"p.png", "p.tif", "p.webp"}) {
    SCOPED_TRACE(name);
    RunTool({"convert", plain, "-profile", profile, In(name)});
    Compare(ThreeThumbnails(), In(name), {});
  }
}

// The pixels of these photos are written in a different colour space.
TEST_F(ProfileTest, OfPhotosInOtherColoursIsDropped) {
  const std::string plain = WriteContent(In("p.ppm"), EncodePpm(NaturalImage(400, 300)));
  for (const auto& [space, tool_space] : {std::pair{"GRAY", "Gray"}, std::pair{"CMYK", "CMYK"}}) {
    std::string profile = Profile(560);
    profile.replace(16, 4, space);
    const std::string file = WriteContent(In("embedded.icc"), profile);
    for (const char* name : {"p.jpg", "p.tif"}) {
      SCOPED_TRACE(std::string(space) + name);
      RunTool({"convert", plain, "-colorspace", tool_space, "-profile", file, In(name)});
      Compare(ThreeThumbnails(), In(name), {});
    }
  }
}

// ---- File sizes ----

TEST_F(ComparisonTest, FileSizesMatch) {
  for (const std::uint32_t seed : {1U, 2U, 3U}) {
    for (const char* kind : {"Bmp", "Jpeg420", "Jpeg444"}) {
      const std::string photo = Source(kind, NaturalImage(1280, 960, seed));
      Compare({Wanted(800), Wanted(320, true, kUnsharp), Wanted(120, false, kUnsharp)}, photo, {});
    }
  }
  std::vector<double> ratios = SizeRatios();
  std::ranges::sort(ratios);
  EXPECT_NEAR(ratios.at(ratios.size() / 2), 1, 0.03);
}

}  // namespace
}  // namespace keldo::testing
