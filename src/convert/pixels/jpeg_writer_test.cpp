#include "convert/pixels/jpeg_writer.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <unistd.h>

#include <csignal>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "convert/pixels/image.h"
#include "support/image_likeness.h"
#include "support/images.h"
#include "support/jpeg_facts.h"
#include "support/natural_image.h"
#include "util/handles.h"

namespace keldo::convert {
namespace {

using keldo::testing::Image;
using keldo::testing::JpegFacts;
using keldo::testing::SamplingFactors;
using ::testing::ElementsAre;

class JpegWriterTest : public ::testing::Test {
 protected:
  void Write(const Image& image, JpegFormat format) {
    format.size = {image.width, image.height};
    const auto writer = MakeJpegWriter(format, file_.get());
    for (int y = 0; y < image.height; ++y)
      writer->AddRow(Row(image, y, format.layout).data());
    writer->Finish();
  }

  static std::vector<std::uint8_t> Row(const Image& image, int y, PixelLayout layout) {
    std::vector<std::uint8_t> row;
    for (int x = 0; x < image.width; ++x) {
      const keldo::testing::Rgb pixel = image.At(x, y);
      if (layout == PixelLayout::kGray) {
        row.push_back(pixel[1]);
      } else if (layout == PixelLayout::kBgr) {
        row.insert(row.end(), pixel.rbegin(), pixel.rend());
      } else {
        row.insert(row.end(), pixel.begin(), pixel.end());
      }
    }
    return row;
  }

  std::string Content() {
    std::string content(static_cast<std::size_t>(lseek(file_.get(), 0, SEEK_END)), '\0');
    EXPECT_EQ(pread(file_.get(), content.data(), content.size(), 0),
              static_cast<ssize_t>(content.size()));
    return content;
  }

  JpegFacts Facts() { return keldo::testing::ReadJpegFacts(Content()).value(); }
  Image Decoded() { return keldo::testing::DecodeJpeg(Content()).value(); }

  UniqueFd file_{memfd_create("thumbnail", MFD_CLOEXEC)};
};

TEST_F(JpegWriterTest, WritesThePixels) {
  const Image image = keldo::testing::NaturalImage(300, 200);
  for (const PixelLayout layout : {PixelLayout::kRgb, PixelLayout::kBgr}) {
    Write(image, {.layout = layout, .quality = 95});
    EXPECT_GT(keldo::testing::Psnr(Decoded(), image), 35);
    ASSERT_EQ(lseek(file_.get(), 0, SEEK_SET), 0);
  }
}

TEST_F(JpegWriterTest, WritesGrayWithOneComponent) {
  Write(keldo::testing::Plain(20, 30, {90, 90, 90}), {.layout = PixelLayout::kGray});
  EXPECT_THAT(Facts().components, ElementsAre(SamplingFactors{1, 1}));
  EXPECT_NEAR(Decoded().At(10, 10)[0], 90, 1);
}

TEST_F(JpegWriterTest, WritesColourRowsOfGrayPixelsWithOneComponent) {
  Image image = keldo::testing::Plain(50, 40, {90, 90, 90});
  Write(image, {.sampling = JpegSampling{{2, 1, 1}, {2, 1, 1}}});
  EXPECT_THAT(Facts().components, ElementsAre(SamplingFactors{1, 1}));
  EXPECT_NEAR(Decoded().At(49, 39)[0], 90, 1);
  // Only the very last pixel is coloured.
  image.pixels.back() = {90, 90, 200};
  ASSERT_EQ(lseek(file_.get(), 0, SEEK_SET), 0);
  Write(image, {});
  EXPECT_EQ(Facts().components.size(), 3U);
  EXPECT_NEAR(Decoded().At(0, 0)[0], 90, 1);
}

TEST_F(JpegWriterTest, QualityDecidesTheSamplingUnlessOneIsGiven) {
  const Image image = keldo::testing::FourCorners(64, 64);
  const SamplingFactors full{1, 1};
  Write(image, {.quality = 90});
  EXPECT_THAT(Facts().components, ElementsAre(full, full, full));
  static_cast<void>(lseek(file_.get(), 0, SEEK_SET));
  Write(image, {.quality = 89});
  EXPECT_THAT(Facts().components, ElementsAre(SamplingFactors{2, 2}, full, full));
  static_cast<void>(lseek(file_.get(), 0, SEEK_SET));
  Write(image, {.quality = 95, .sampling = JpegSampling{{2, 1, 1}, {1, 1, 1}}});
  EXPECT_THAT(Facts().components, ElementsAre(SamplingFactors{2, 1}, full, full));
}

TEST_F(JpegWriterTest, WritesDensityAndProfile) {
  const std::vector<std::uint8_t> icc(100'000, 'p');
  Write(keldo::testing::FourCorners(40, 40), {.density = {1, 300, 240}, .icc = icc});
  const JpegFacts facts = Facts();
  EXPECT_TRUE(facts.jfif);
  EXPECT_EQ(facts.density_unit, 1);
  EXPECT_EQ(facts.density_x, 300);
  EXPECT_EQ(facts.density_y, 240);
  EXPECT_EQ(facts.icc, std::string(100'000, 'p'));
  EXPECT_FALSE(facts.exif);
  EXPECT_FALSE(facts.comment);
}

// Noise uses every code of the fixed tables, at every quality, in small and large thumbnails.
TEST_F(JpegWriterTest, WritesAnyPixels) {
  std::mt19937 random(5);
  std::uniform_int_distribution<int> any(0, 255);
  for (const int side : {250, 800}) {
    Image noise{side, side, {}};
    for (int i = 0; i < side * side; ++i) {
      noise.pixels.push_back({static_cast<std::uint8_t>(any(random)),
                              static_cast<std::uint8_t>(any(random) / 128 * 255),
                              static_cast<std::uint8_t>(any(random))});
    }
    for (const int quality : {1, 30, 90, 100}) {
      ASSERT_EQ(lseek(file_.get(), 0, SEEK_SET), 0);
      Write(noise, {.quality = quality});
      const Image decoded = Decoded();
      EXPECT_EQ(decoded.width, side);
      if (quality == 100) {
        EXPECT_GT(keldo::testing::Psnr(decoded, noise), 30) << side;
      }
    }
  }
}

TEST_F(JpegWriterTest, ReplacesTheOldContentOnlyWhenComplete) {
  const std::string old(1'000'000, 'o');
  ASSERT_EQ(write(file_.get(), old.data(), old.size()), static_cast<ssize_t>(old.size()));
  ASSERT_EQ(lseek(file_.get(), 0, SEEK_SET), 0);
  const Image image = keldo::testing::FourCorners(32, 32);
  {
    const auto writer = MakeJpegWriter({.size = {32, 32}}, file_.get());
    for (int y = 0; y < 31; ++y)
      writer->AddRow(Row(image, y, PixelLayout::kRgb).data());
  }
  EXPECT_EQ(Content(), old);
  ASSERT_EQ(lseek(file_.get(), 0, SEEK_SET), 0);
  Write(image, {});
  EXPECT_LT(Content().size(), 2000U);
}

TEST_F(JpegWriterTest, SaysWhyAFileCannotBeWritten) {
  const UniqueFd full(open("/dev/full", O_WRONLY | O_CLOEXEC));
  const auto writer = MakeJpegWriter({.size = {1, 1}}, full.get());
  writer->AddRow(std::vector<std::uint8_t>(3).data());
  try {
    writer->Finish();
    FAIL();
  } catch (const ImageError& error) {
    EXPECT_EQ(error.kind(), ImageError::Kind::kOutput);
    EXPECT_STREQ(error.what(), "a thumbnail cannot be written: No space left on device");
  }
}

TEST_F(JpegWriterTest, RefusesASizeTooLargeForJpeg) {
  const auto writer = MakeJpegWriter({.size = {70'000, 1}}, file_.get());
  writer->AddRow(std::vector<std::uint8_t>(3 * 70'000).data());
  EXPECT_THROW(writer->Finish(), ImageError);
}

}  // namespace
}  // namespace keldo::convert
