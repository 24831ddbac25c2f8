#include "support/jpeg_facts.h"

#include <gtest/gtest.h>

namespace keldo::testing {
namespace {

using std::string_literals::operator""s;

constexpr std::size_t kAfterStart = 2;  // Bytes: the marker that begins every file.

std::string Segment(char marker, const std::string& data) {
  const std::size_t length = data.size() + 2;
  return "\xFF"s + marker + static_cast<char>(length >> 8) + static_cast<char>(length & 0xFF) +
         data;
}

TEST(JpegFactsTest, ReadsAPlainFile) {
  const auto facts = ReadJpegFacts(EncodeJpeg(Plain(30, 20, {1, 2, 3})));
  ASSERT_TRUE(facts);
  JpegFacts expected;
  expected.width = 30;
  expected.height = 20;
  expected.components = {{2, 2}, {1, 1}, {1, 1}};
  expected.jfif = true;
  expected.density_x = 1;
  expected.density_y = 1;
  EXPECT_EQ(*facts, expected) << Describe(*facts);
}

TEST(JpegFactsTest, ReadsAGrayFile) {
  const auto facts = ReadJpegFacts(EncodeJpeg(Plain(8, 8, {1, 1, 1}), {.gray = true}));
  ASSERT_TRUE(facts);
  EXPECT_EQ(facts->components, std::vector<SamplingFactors>(1));
}

TEST(JpegFactsTest, ReadsTheProfileTheTagsAndTheComment) {
  const std::string profile(70'000, 'p');
  std::string content = EncodeJpeg(Plain(8, 8, {1, 2, 3}), {.orientation = 6, .icc = profile});
  auto facts = ReadJpegFacts(content);
  ASSERT_TRUE(facts);
  EXPECT_EQ(facts->icc, profile);
  EXPECT_TRUE(facts->exif);
  EXPECT_FALSE(facts->comment);
  content.insert(kAfterStart, Segment('\xFE', "hello"));
  facts = ReadJpegFacts(content);
  ASSERT_TRUE(facts);
  EXPECT_TRUE(facts->comment);
}

TEST(JpegFactsTest, ReadsTheDensity) {
  std::string content = EncodeJpeg(Plain(8, 8, {1, 2, 3}));
  // Behind the marker's length, "JFIF" with its zero and the version: unit, x and y.
  const std::size_t density = content.find("JFIF") + 7;
  content.replace(density, 5, "\x01\x01\x2C\x00\x48"s);
  const auto facts = ReadJpegFacts(content);
  ASSERT_TRUE(facts);
  EXPECT_EQ(facts->density_unit, 1);
  EXPECT_EQ(facts->density_x, 300);
  EXPECT_EQ(facts->density_y, 72);
  EXPECT_EQ(Describe(*facts), "8x8 2x2,1x1,1x1 density 1:300x72");
}

TEST(JpegFactsTest, ReadsAProgressiveFile) {
  std::string content = EncodeJpeg(Plain(8, 8, {1, 2, 3}));
  const std::size_t frame = content.find("\xFF\xC0");
  ASSERT_NE(frame, std::string::npos);
  content[frame + 1] = '\xC2';
  const auto facts = ReadJpegFacts(content);
  ASSERT_TRUE(facts);
  EXPECT_TRUE(facts->progressive);
}

TEST(JpegFactsTest, RejectsOtherFiles) {
  EXPECT_FALSE(ReadJpegFacts(""));
  EXPECT_FALSE(ReadJpegFacts("P6 1 1 255 ..."));
  EXPECT_FALSE(ReadJpegFacts(EncodeJpeg(Plain(8, 8, {1, 2, 3})).substr(0, 60)));
}

}  // namespace
}  // namespace keldo::testing
