#include "media/simple_header.h"

#include <gtest/gtest.h>

#include <ostream>
#include <string>

namespace keldo::media {

static bool operator==(const ImageSize& a, const ImageSize& b) {
  return a.width == b.width && a.height == b.height;
}
static void PrintTo(const ImageSize& size, std::ostream* out) {
  *out << size.width << "x" << size.height;
}

namespace {

using Size = std::optional<ImageSize>;

TEST(PixmapSize, ReadsAllSixKinds) {
  for (const char kind : {'1', '2', '3', '4', '5', '6'}) {
    EXPECT_EQ(PixmapSize(std::string("P") + kind + "\n4000 3000\n255\n\xFF"), (Size{{4000, 3000}}))
        << kind;
  }
}

TEST(PixmapSize, SkipsWhiteSpaceAndComments) {
  EXPECT_EQ(PixmapSize("P6 \t\r\n 12\n\n34 255 "), (Size{{12, 34}}));
  EXPECT_EQ(PixmapSize("P5#made by # dcraw\n# 1 2\n12#\n# x\n34\n"), (Size{{12, 34}}));
}

TEST(PixmapSize, FindsNoneInAnythingElse) {
  for (const char* start :
       {"", "P", "P6", "P0\n1 2\n", "P7\n1 2\n", "PNG 1 2\n", "P61 2\n", "P6\nx 2\n", "P6\n1 y\n",
        "P6\n-1 2\n", "P6\n1 -2\n", "P6\n1\n", "P6\n99999999999999999999 1\n", "P6\n# no end"}) {
    EXPECT_EQ(PixmapSize(start), std::nullopt) << start;
  }
}

TEST(PixmapSize, TakesNoNumberThatMayGoOn) {
  EXPECT_EQ(PixmapSize("P6\n12 34"), std::nullopt);
  EXPECT_EQ(PixmapSize("P6\n12"), std::nullopt);
}

std::string Bitmap(const std::string& header) {
  return "BM" + std::string(12, 'x') + header + std::string(20, '\0');
}

TEST(BitmapSize, ReadsWindowsBitmapsStoredFromEitherEnd) {
  const std::string size_40("\x28\0\0\0", 4);
  EXPECT_EQ(BitmapSize(Bitmap(size_40 + std::string("\x80\x02\0\0\xE0\x01\0\0", 8))),
            (Size{{640, 480}}));
  EXPECT_EQ(BitmapSize(Bitmap(size_40 + std::string("\x80\x02\0\0\x20\xFE\xFF\xFF", 8))),
            (Size{{640, 480}}));
  EXPECT_EQ(BitmapSize(Bitmap(size_40 + std::string("\x01\0\0\0\0\0\0\x80", 8))),
            (Size{{1, 2147483648}}));
}

TEST(BitmapSize, ReadsOs2Bitmaps) {
  EXPECT_EQ(BitmapSize(Bitmap(std::string("\x0C\0\0\0\x80\x02\xE0\x01", 8))), (Size{{640, 480}}));
}

TEST(BitmapSize, FindsNoneInAnythingElse) {
  EXPECT_EQ(BitmapSize(""), std::nullopt);
  EXPECT_EQ(BitmapSize("BM"), std::nullopt);
  EXPECT_EQ(BitmapSize(Bitmap(std::string("\x28\0\0\0\x80\x02\0\0", 8)).substr(0, 25)),
            std::nullopt);
  EXPECT_EQ(BitmapSize("BMX " + std::string(40, ' ')), std::nullopt);
}

TEST(GifSize, ReadsBothVersions) {
  for (const char* version : {"GIF87a", "GIF89a"}) {
    EXPECT_EQ(GifSize(version + std::string("\x80\x02\xE0\x01\0\0\0;", 8)), (Size{{640, 480}}));
  }
}

TEST(GifSize, FindsNoneInAnythingElse) {
  EXPECT_EQ(GifSize("GIF88a\x80\x02\xE0\x01"), std::nullopt);
  EXPECT_EQ(GifSize("GIF89a\x80\x02\xE0"), std::nullopt);
  EXPECT_EQ(GifSize(""), std::nullopt);
}

}  // namespace
}  // namespace keldo::media
