#include "media/header_readers.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <fstream>
#include <ostream>
#include <string>
#include <vector>

#include "media/formats.h"
#include "support/temp_dir.h"
#include "util/handles.h"

namespace keldo::media {

static bool operator==(const RawHeader& a, const RawHeader& b) {
  return a.width == b.width && a.height == b.height && a.orientation == b.orientation;
}
static void PrintTo(const RawHeader& header, std::ostream* out) {
  *out << header.width << "x" << header.height << " orientation " << header.orientation;
}

namespace {

using Header = std::optional<RawHeader>;

// What the header reader of the detected format finds.
std::optional<RawHeader> HeaderOf(const std::string& content) {
  const testing::TempDir directory;
  const std::string path = directory.path() + "/photo";
  std::ofstream(path, std::ios::binary) << content;
  const UniqueFd fd(open(path.c_str(), O_RDONLY | O_CLOEXEC));
  const Bytes start = AsBytes(content);
  const HeaderReader read = HeaderReaderOf(DetectFormat(start));
  return read == nullptr ? std::nullopt : read({start, fd.get()});
}

std::string Text(std::initializer_list<int> values) {
  std::string bytes;
  for (const int value : values)
    bytes.push_back(static_cast<char>(value));
  return bytes;
}

std::string Segment(int marker, const std::string& content) {
  const int length = static_cast<int>(content.size()) + 2;
  return Text({0xFF, marker, length / 256, length % 256}) + content;
}

// One IFD with the orientation tag alone, big-endian.
std::string Exif(int orientation) {
  return std::string("Exif\0\0MM\0*\0\0\0\x08\0\x01", 16) +
         Text({0x01, 0x12, 0, 3, 0, 0, 0, 1, 0, orientation, 0, 0, 0, 0, 0, 0});
}

const std::string kStart = Text({0xFF, 0xD8});
// 4000 x 3000 pixels, one component.
const std::string kFrame = Segment(0xC0, Text({8, 0x0B, 0xB8, 0x0F, 0xA0, 1, 1, 0x11, 0}));

void ExpectHeader(const std::string& bytes, long orientation) {
  const auto header = HeaderOf(bytes);
  ASSERT_TRUE(header.has_value());
  EXPECT_EQ(header->width, 4000);
  EXPECT_EQ(header->height, 3000);
  EXPECT_EQ(header->orientation, orientation);
}

TEST(JpegHeaderTest, ReadsFrameAndOrientation) {
  ExpectHeader(kStart + Segment(0xE1, Exif(6)) + kFrame, 6);
}

TEST(JpegHeaderTest, WithoutExifThereIsNoOrientation) {
  ExpectHeader(kStart + kFrame, 0);
}

TEST(JpegHeaderTest, ReadsAProgressiveFrame) {
  std::string frame = kFrame;
  frame[1] = static_cast<char>(0xC2);
  ExpectHeader(kStart + frame, 0);
}

TEST(JpegHeaderTest, AHuffmanTableIsNotAFrame) {
  ExpectHeader(kStart + Segment(0xC4, std::string(20, '\1')) + kFrame, 0);
}

TEST(JpegHeaderTest, SkipsADamagedColourProfile) {
  const std::string profile = std::string("ICC_PROFILE\0\1\1", 14) + std::string(400, 'p');
  ExpectHeader(kStart + Segment(0xE2, profile) + Segment(0xE1, Exif(8)) + kFrame, 8);
}

TEST(JpegHeaderTest, IgnoresDamagedExif) {
  ExpectHeader(
      kStart + Segment(0xE1, std::string("Exif\0\0", 6) + std::string(30, '\xEE')) + kFrame, 0);
}

TEST(JpegHeaderTest, SkipsOtherApplicationDataBeforeExif) {
  ExpectHeader(
      kStart + Segment(0xE1, "http://ns.adobe.com/xap/1.0/") + Segment(0xE1, Exif(3)) + kFrame, 3);
}

TEST(JpegHeaderTest, SkipsFillBytes) {
  ExpectHeader(kStart + Text({0xFF, 0xFF, 0xFF}) + kFrame, 0);
}

TEST(JpegHeaderTest, AFileThatEndsBeforeItsFrameHasNoHeader) {
  const std::string whole = kStart + Segment(0xE1, Exif(6)) + kFrame;
  for (std::size_t size = 0; size < whole.size() - 4; ++size) {
    EXPECT_FALSE(HeaderOf(whole.substr(0, size)).has_value()) << size;
  }
}

TEST(JpegHeaderTest, GarbageHasNoHeader) {
  EXPECT_FALSE(HeaderOf("").has_value());
  EXPECT_FALSE(HeaderOf("not an image at all").has_value());
  EXPECT_FALSE(HeaderOf(kStart + "rubbish instead of a marker").has_value());
  EXPECT_FALSE(HeaderOf(kStart + Text({0xFF, 0xE0, 0, 0}) + kFrame).has_value());
  EXPECT_FALSE(HeaderOf(kStart + Text({0xFF, 0xD9})).has_value());
  EXPECT_FALSE(HeaderOf(kStart + std::string(20000, '\xFF')).has_value());
}

TEST(PnmHeaderTest, ReadsAllSixKinds) {
  for (const char kind : {'1', '2', '3', '4', '5', '6'}) {
    EXPECT_EQ(HeaderOf(std::string("P") + kind + "\n4000 3000\n255\n\xFF"), (Header{{4000, 3000}}))
        << kind;
  }
}

TEST(PnmHeaderTest, SkipsWhiteSpaceAndComments) {
  EXPECT_EQ(HeaderOf("P6 \t\r\n 12\n\n34 255 "), (Header{{12, 34}}));
  EXPECT_EQ(HeaderOf("P5#made by # dcraw\n# 1 2\n12#\n# x\n34\n"), (Header{{12, 34}}));
}

TEST(PnmHeaderTest, RejectsEverythingElse) {
  for (const char* start :
       {"", "P", "P6", "P0\n1 2\n", "P7\n1 2\n", "PNG 1 2\n", "P61 2\n", "P6\nx 2\n", "P6\n1 y\n",
        "P6\n-1 2\n", "P6\n1 -2\n", "P6\n1\n", "P6\n99999999999999999999 1\n", "P6\n# no end"}) {
    EXPECT_EQ(HeaderOf(start), std::nullopt) << start;
  }
}

TEST(PnmHeaderTest, RejectsANumberThatMayGoOn) {
  EXPECT_EQ(HeaderOf("P6\n12 34"), std::nullopt);
  EXPECT_EQ(HeaderOf("P6\n12"), std::nullopt);
}

std::string Bitmap(const std::string& header) {
  return "BM" + std::string(12, 'x') + header + std::string(20, '\0');
}

TEST(BmpHeaderTest, ReadsWindowsBitmapsStoredFromEitherEnd) {
  const std::string size_40("\x28\0\0\0", 4);
  EXPECT_EQ(HeaderOf(Bitmap(size_40 + std::string("\x80\x02\0\0\xE0\x01\0\0", 8))),
            (Header{{640, 480}}));
  EXPECT_EQ(HeaderOf(Bitmap(size_40 + std::string("\x80\x02\0\0\x20\xFE\xFF\xFF", 8))),
            (Header{{640, 480}}));
  EXPECT_EQ(HeaderOf(Bitmap(size_40 + std::string("\x01\0\0\0\0\0\0\x80", 8))),
            (Header{{1, 2147483648}}));
}

TEST(BmpHeaderTest, ReadsOs2Bitmaps) {
  EXPECT_EQ(HeaderOf(Bitmap(std::string("\x0C\0\0\0\x80\x02\xE0\x01", 8))), (Header{{640, 480}}));
}

TEST(BmpHeaderTest, RejectsEverythingElse) {
  EXPECT_EQ(HeaderOf(""), std::nullopt);
  EXPECT_EQ(HeaderOf("BM"), std::nullopt);
  EXPECT_EQ(HeaderOf(Bitmap(std::string("\x28\0\0\0\x80\x02\0\0", 8)).substr(0, 25)), std::nullopt);
  EXPECT_EQ(HeaderOf("BMX " + std::string(40, ' ')), std::nullopt);
}

TEST(GifHeaderTest, ReadsBothVersions) {
  for (const char* version : {"GIF87a", "GIF89a"}) {
    EXPECT_EQ(HeaderOf(version + std::string("\x80\x02\xE0\x01\0\0\0;", 8)), (Header{{640, 480}}));
  }
}

TEST(GifHeaderTest, RejectsEverythingElse) {
  EXPECT_EQ(HeaderOf("GIF88a\x80\x02\xE0\x01"), std::nullopt);
  EXPECT_EQ(HeaderOf("GIF89a\x80\x02\xE0"), std::nullopt);
  EXPECT_EQ(HeaderOf(""), std::nullopt);
}

using Data = std::vector<std::uint8_t>;

// Two entries, an orientation of 6 and a resolution of 300/2, in both byte orders.
const Data kLittle{'I',  'I', 42, 0, 8,  0, 0, 0,  // header
                   2,    0,                        // entries
                   0x12, 1,   3,  0, 1,  0, 0, 0, 6,    0, 0, 0, 0x1A, 1, 5, 0,
                   1,    0,   0,  0, 34, 0, 0, 0, 0x2C, 1, 0, 0, 2,    0, 0, 0};
const Data kBig{'M', 'M', 0,    42, 0, 0, 0, 8, 0, 2, 1, 0x12, 0,  3, 0, 0, 0,    1, 0, 6, 0,
                0,   1,   0x1A, 0,  5, 0, 0, 0, 1, 0, 0, 0,    34, 0, 0, 1, 0x2C, 0, 0, 0, 2};

TEST(TiffDirectoryTest, ReadsBothByteOrders) {
  for (const Data& tiff : {kLittle, kBig}) {
    const TiffDirectory directory(tiff);
    EXPECT_EQ(directory.Integer(TiffDirectory::kOrientation), 6U);
    EXPECT_EQ(directory.Rational(TiffDirectory::kXResolution), 150.0);
    EXPECT_EQ(directory.Integer(TiffDirectory::kXResolution), std::nullopt) << "another type";
    EXPECT_EQ(directory.Rational(TiffDirectory::kYResolution), std::nullopt) << "not there";
  }
}

TEST(TiffDirectoryTest, ReadsLongNumbersToo) {
  Data tiff = kLittle;
  tiff[12] = 4;
  EXPECT_EQ(TiffDirectory(tiff).Integer(TiffDirectory::kOrientation), 6U);
}

TEST(TiffDirectoryTest, AFractionWithADenominatorOfZeroIsNone) {
  Data tiff = kLittle;
  tiff[38] = 0;
  EXPECT_EQ(TiffDirectory(tiff).Rational(TiffDirectory::kXResolution), std::nullopt);
}

TEST(TiffDirectoryTest, EntriesBeyondTheEndAreMissing) {
  for (std::size_t size = 0; size < kLittle.size(); ++size) {
    const Data cut(kLittle.begin(), kLittle.begin() + static_cast<std::ptrdiff_t>(size));
    const TiffDirectory directory(cut);
    EXPECT_EQ(directory.Integer(TiffDirectory::kOrientation).has_value(), size >= 22) << size;
    EXPECT_EQ(directory.Rational(TiffDirectory::kXResolution).has_value(), false) << size;
  }
}

TEST(TiffDirectoryTest, IgnoresOffsetsBeyondTheEnd) {
  for (const std::size_t place : {4U, 30U}) {
    Data tiff = kLittle;
    for (std::size_t i = 0; i < 4; ++i)
      tiff[place + i] = 0xFF;
    EXPECT_EQ(TiffDirectory(tiff).Rational(TiffDirectory::kXResolution), std::nullopt);
  }
}

TEST(TiffDirectoryTest, OtherDataHasNoEntries) {
  Data tiff = kLittle;
  tiff[2] = 43;
  EXPECT_EQ(TiffDirectory(tiff).Integer(TiffDirectory::kOrientation), std::nullopt);
  EXPECT_EQ(TiffDirectory({}).Integer(TiffDirectory::kOrientation), std::nullopt);
}

}  // namespace
}  // namespace keldo::media
