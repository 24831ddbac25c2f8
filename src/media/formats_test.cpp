#include "media/formats.h"

#include <gtest/gtest.h>

#include <string>

namespace keldo::media {
namespace {

Format FormatOfText(const std::string& bytes) {
  return DetectFormat(AsBytes(bytes));
}

// The start of an ISO media file.
std::string Ftyp(const std::string& main_brand, const std::string& others = "") {
  constexpr std::size_t kByte = 256;
  const std::size_t size = 16 + others.size();
  return std::string(2, '\0') + static_cast<char>(size / kByte) + static_cast<char>(size % kByte) +
         "ftyp" + main_brand + std::string(4, '\0') + others;
}

TEST(DetectFormatTest, DetectsEachFormatByItsFirstBytes) {
  EXPECT_EQ(FormatOfText("\xFF\xD8\xFF\xE0"), Format::kJpeg);
  EXPECT_EQ(FormatOfText("BM1234"), Format::kBmp);
  EXPECT_EQ(FormatOfText("P5 1 1 255\n."), Format::kPnm);
  EXPECT_EQ(FormatOfText("P6\n"), Format::kPnm);
  for (const char* start : {"P1 ", "P2\n", "P3", "P4 "}) {
    EXPECT_EQ(FormatOfText(start), Format::kOtherPnm) << start;
  }
  EXPECT_EQ(FormatOfText("\x89PNG\r\n\x1A\n"), Format::kPng);
  EXPECT_EQ(FormatOfText(std::string("II*\0", 4)), Format::kTiff);
  EXPECT_EQ(FormatOfText(std::string("MM\0*", 4)), Format::kTiff);
  EXPECT_EQ(FormatOfText(std::string("MM\0+", 4)), Format::kTiff);
  EXPECT_EQ(FormatOfText(std::string("II+\0", 4)), Format::kTiff);
  EXPECT_EQ(FormatOfText("RIFF1234WEBP"), Format::kWebp);
  EXPECT_EQ(FormatOfText("GIF89a"), Format::kGif);
  EXPECT_EQ(FormatOfText("GIF87a"), Format::kGif);
}

TEST(DetectFormatTest, DetectsHeifByItsMainBrandOrACompatibleOne) {
  for (const char* brand :
       {"heic", "heix", "heim", "heis", "hevc", "hevx", "mif1", "msf1", "avif", "avis"}) {
    EXPECT_EQ(FormatOfText(Ftyp(brand)), Format::kHeif) << brand;
  }
  EXPECT_EQ(FormatOfText(Ftyp("MiHE", "isomheic")), Format::kHeif);
}

TEST(DetectFormatTest, VideosAreNotHeif) {
  EXPECT_EQ(FormatOfText(Ftyp("isom", "mp41avc1")), Format::kUnknown);
  EXPECT_EQ(FormatOfText(Ftyp("qt  ")), Format::kUnknown);
  EXPECT_EQ(FormatOfText(Ftyp("mp42")), Format::kUnknown);
  // What follows the box does not count.
  EXPECT_EQ(FormatOfText(Ftyp("isom") + "heic"), Format::kUnknown);
}

TEST(DetectFormatTest, LooksForBrandsInTheFirstBytesOnly) {
  const std::string near(1000, ' ');
  const std::string far(5000, ' ');
  EXPECT_EQ(FormatOfText(Ftyp("isom", near + "heic")), Format::kHeif);
  EXPECT_EQ(FormatOfText(Ftyp("isom", far + "heic")), Format::kUnknown);
}

TEST(DetectFormatTest, EverythingElseIsUnknown) {
  for (const char* start : {"", "P", "P0 ", "P7\n", "GIF", "RIFF1234WAVE", "%PDF", "II"}) {
    EXPECT_EQ(FormatOfText(start), Format::kUnknown) << start;
  }
  EXPECT_EQ(FormatOfText(std::string("II*\0\x10\0\0\0CR\2\0", 12)), Format::kUnknown)
      << "a CR2 file";
  EXPECT_EQ(FormatOfText(std::string("\0\0\0\x18"
                                     "fty",
                                     7)),
            Format::kUnknown);
}

}  // namespace
}  // namespace keldo::media
