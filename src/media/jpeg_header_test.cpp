#include "media/jpeg_header.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <fstream>
#include <string>

#include "support/temp_dir.h"
#include "util/handles.h"

namespace keldo::media {
namespace {

std::string Bytes(std::initializer_list<int> values) {
  std::string bytes;
  for (const int value : values)
    bytes.push_back(static_cast<char>(value));
  return bytes;
}

std::string Segment(int marker, const std::string& content) {
  const int length = static_cast<int>(content.size()) + 2;
  return Bytes({0xFF, marker, length / 256, length % 256}) + content;
}

// One IFD with the orientation tag alone, big-endian.
std::string Exif(int orientation) {
  return std::string("Exif\0\0MM\0*\0\0\0\x08\0\x01", 16) +
         Bytes({0x01, 0x12, 0, 3, 0, 0, 0, 1, 0, orientation, 0, 0, 0, 0, 0, 0});
}

const std::string kStart = Bytes({0xFF, 0xD8});
// 4000 x 3000 pixels, one component.
const std::string kFrame = Segment(0xC0, Bytes({8, 0x0B, 0xB8, 0x0F, 0xA0, 1, 1, 0x11, 0}));

std::optional<ExifHeader> HeaderOf(const std::string& bytes) {
  const testing::TempDir directory;
  const std::string path = directory.path() + "/a.jpg";
  std::ofstream(path, std::ios::binary) << bytes;
  const UniqueFd fd(open(path.c_str(), O_RDONLY | O_CLOEXEC));
  return JpegHeader(fd.get());
}

void ExpectHeader(const std::string& bytes, long orientation) {
  const auto header = HeaderOf(bytes);
  ASSERT_TRUE(header.has_value());
  EXPECT_EQ(header->size.width, 4000);
  EXPECT_EQ(header->size.height, 3000);
  EXPECT_EQ(header->orientation, orientation);
}

TEST(JpegHeaderTest, FrameAndOrientationAreRead) {
  ExpectHeader(kStart + Segment(0xE1, Exif(6)) + kFrame, 6);
}

TEST(JpegHeaderTest, NoExifMeansNoOrientation) {
  ExpectHeader(kStart + kFrame, 0);
}

TEST(JpegHeaderTest, ProgressiveFrameCounts) {
  std::string frame = kFrame;
  frame[1] = static_cast<char>(0xC2);
  ExpectHeader(kStart + frame, 0);
}

TEST(JpegHeaderTest, HuffmanTablesAreNoFrame) {
  ExpectHeader(kStart + Segment(0xC4, std::string(20, '\1')) + kFrame, 0);
}

TEST(JpegHeaderTest, BrokenColourProfileIsPassedOver) {
  const std::string profile = std::string("ICC_PROFILE\0\1\1", 14) + std::string(400, 'p');
  ExpectHeader(kStart + Segment(0xE2, profile) + Segment(0xE1, Exif(8)) + kFrame, 8);
}

TEST(JpegHeaderTest, BrokenExifCountsAsNone) {
  ExpectHeader(
      kStart + Segment(0xE1, std::string("Exif\0\0", 6) + std::string(30, '\xEE')) + kFrame, 0);
}

TEST(JpegHeaderTest, OtherApplicationDataBeforeExifIsPassedOver) {
  ExpectHeader(
      kStart + Segment(0xE1, "http://ns.adobe.com/xap/1.0/") + Segment(0xE1, Exif(3)) + kFrame, 3);
}

TEST(JpegHeaderTest, FillBytesAreSkipped) {
  ExpectHeader(kStart + Bytes({0xFF, 0xFF, 0xFF}) + kFrame, 0);
}

TEST(JpegHeaderTest, FileThatEndsBeforeItsFrameHasNoHeader) {
  const std::string whole = kStart + Segment(0xE1, Exif(6)) + kFrame;
  for (std::size_t size = 0; size < whole.size() - 4; ++size) {
    EXPECT_FALSE(HeaderOf(whole.substr(0, size)).has_value()) << size;
  }
}

TEST(JpegHeaderTest, RubbishHasNoHeader) {
  EXPECT_FALSE(HeaderOf("").has_value());
  EXPECT_FALSE(HeaderOf("not a picture at all").has_value());
  EXPECT_FALSE(HeaderOf(kStart + "rubbish instead of a marker").has_value());
  EXPECT_FALSE(HeaderOf(kStart + Bytes({0xFF, 0xE0, 0, 0}) + kFrame).has_value());
  EXPECT_FALSE(HeaderOf(kStart + Bytes({0xFF, 0xD9})).has_value());
  EXPECT_FALSE(HeaderOf(kStart + std::string(20000, '\xFF')).has_value());
}

}  // namespace
}  // namespace keldo::media
