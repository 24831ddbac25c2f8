#include "convert/readers/open_image.h"

#include <gtest/gtest.h>

#include "media/format.h"
#include "support/sample_files.h"

namespace keldo::convert {
namespace {

using testing::Data;

Format FormatOfText(const std::string& bytes) {
  Data data;
  testing::Append(data, bytes);
  return FormatOf(data);
}

// The start of an ISO media file.
std::string Ftyp(const std::string& main_brand, const std::string& others = "") {
  constexpr std::size_t kByte = 256;
  const std::size_t size = 16 + others.size();
  return std::string(2, '\0') + static_cast<char>(size / kByte) + static_cast<char>(size % kByte) +
         "ftyp" + main_brand + std::string(4, '\0') + others;
}

TEST(FormatTest, KnowsEachFormatByItsFirstBytes) {
  EXPECT_EQ(FormatOfText("\xFF\xD8\xFF\xE0"), Format::kJpeg);
  EXPECT_EQ(FormatOfText("BM1234"), Format::kBmp);
  EXPECT_EQ(FormatOfText("P5 1 1 255\n."), Format::kPnm);
  EXPECT_EQ(FormatOfText("P6\n"), Format::kPnm);
  EXPECT_EQ(FormatOf(testing::PngFile({})), Format::kPng);
  EXPECT_EQ(FormatOf(testing::TiffFile({})), Format::kTiff);
  EXPECT_EQ(FormatOfText(std::string("MM\0*", 4)), Format::kTiff);
  EXPECT_EQ(FormatOfText(std::string("MM\0+", 4)), Format::kTiff);
  EXPECT_EQ(FormatOfText(std::string("II+\0", 4)), Format::kTiff);
  EXPECT_EQ(FormatOf(testing::WebpFile({})), Format::kWebp);
  EXPECT_EQ(FormatOf(testing::GifFile({})), Format::kGif);
  EXPECT_EQ(FormatOfText("GIF87a"), Format::kGif);
}

TEST(FormatTest, KnowsHeifByItsMainBrandOrOneThatItIsCompatibleWith) {
  for (const char* brand :
       {"heic", "heix", "heim", "heis", "hevc", "hevx", "mif1", "msf1", "avif", "avis"}) {
    EXPECT_EQ(FormatOfText(Ftyp(brand)), Format::kHeif) << brand;
  }
  EXPECT_EQ(FormatOfText(Ftyp("MiHE", "isomheic")), Format::kHeif);
  EXPECT_EQ(FormatOf(testing::HeifFile({})), Format::kHeif);
  EXPECT_EQ(FormatOf(testing::HeifFile({.av1 = true})), Format::kHeif);
}

TEST(FormatTest, FilmsAreNotHeif) {
  EXPECT_EQ(FormatOfText(Ftyp("isom", "mp41avc1")), Format::kOther);
  EXPECT_EQ(FormatOfText(Ftyp("qt  ")), Format::kOther);
  EXPECT_EQ(FormatOfText(Ftyp("mp42")), Format::kOther);
  // The text behind the box does not count.
  EXPECT_EQ(FormatOfText(Ftyp("isom") + "heic"), Format::kOther);
}

TEST(FormatTest, DoesNotLookForABrandFarIntoTheFile) {
  const std::string near(1000, ' ');
  const std::string far(5000, ' ');
  EXPECT_EQ(FormatOfText(Ftyp("isom", near + "heic")), Format::kHeif);
  EXPECT_EQ(FormatOfText(Ftyp("isom", far + "heic")), Format::kOther);
}

TEST(FormatTest, LeavesTheRestToOthers) {
  for (const char* start : {"", "P", "P1 ", "P4 ", "P7\n", "GIF", "RIFF1234WAVE", "%PDF", "II"}) {
    EXPECT_EQ(FormatOfText(start), Format::kOther) << start;
  }
  EXPECT_EQ(FormatOfText(std::string("II*\0\x10\0\0\0CR\2\0", 12)), Format::kOther) << "a CR2 file";
  EXPECT_EQ(FormatOfText(std::string("\0\0\0\x18"
                                     "fty",
                                     7)),
            Format::kOther);
}

TEST(FormatTest, EveryCodecIsThereButNoneForUnknownFiles) {
  for (const Format format : {Format::kJpeg, Format::kBmp, Format::kPnm, Format::kPng,
                              Format::kTiff, Format::kWebp, Format::kGif, Format::kHeif}) {
    EXPECT_TRUE(LoadCodec(format)) << static_cast<int>(format);
  }
  EXPECT_FALSE(LoadCodec(Format::kOther));
}

TEST(OpenImageTest, RefusesAnUnknownFormatAsUnsupported) {
  try {
    (void)OpenImage(Format::kOther, {}, {});
    FAIL();
  } catch (const ImageError& error) {
    EXPECT_EQ(error.kind(), ImageError::Kind::kUnsupported);
  }
}

}  // namespace
}  // namespace keldo::convert
