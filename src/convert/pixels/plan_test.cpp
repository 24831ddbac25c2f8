#include "convert/pixels/plan.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
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

// An image in memory.
class MemoryImage : public ImageReader {
 public:
  explicit MemoryImage(Image image) : image_(std::move(image)) {
    info_.width = info_.full_width = image_.width;
    info_.height = info_.full_height = image_.height;
  }
  ImageInfo& info_to_change() { return info_; }
  [[nodiscard]] const ImageInfo& info() const override { return info_; }
  [[nodiscard]] const std::uint8_t* NextRow() override {
    if (next_ >= fails_at) throw ImageError(ImageError::Kind::kCorrupt, "torn");
    const auto row = static_cast<std::size_t>(next_++ * image_.width);
    return image_.pixels.at(row).data();
  }
  int fails_at = 1 << 30;

 private:
  Image image_;
  ImageInfo info_;
  int next_ = 0;
};

Step StepOf(int side, bool fill = false) {
  Step step;
  step.box = {side, side, fill};
  step.quality = 95;
  step.flatten = true;
  return step;
}

class MakeThumbnailsTest : public ::testing::Test {
 protected:
  std::vector<Image> Make(const std::vector<Step>& steps, MemoryImage& reader, Bytes icc = {}) {
    std::vector<int> outputs;
    files_.clear();
    for (std::size_t i = 0; i < steps.size(); ++i) {
      files_.emplace_back(memfd_create("thumbnail", MFD_CLOEXEC));
      outputs.push_back(files_.back().get());
    }
    MakeThumbnails(steps, reader, icc, outputs);
    std::vector<Image> images;
    for (std::size_t i = 0; i < steps.size(); ++i)
      images.push_back(keldo::testing::DecodeJpeg(Content(i)).value());
    return images;
  }

  std::string Content(std::size_t index) {
    const int file = files_.at(index).get();
    std::string content(static_cast<std::size_t>(lseek(file, 0, SEEK_END)), '\0');
    EXPECT_EQ(pread(file, content.data(), content.size(), 0), static_cast<ssize_t>(content.size()));
    return content;
  }

  std::vector<UniqueFd> files_;
};

int DistanceFromUpright(const Image& image) {
  return keldo::testing::CornerDistance(keldo::testing::Corners(image),
                                        keldo::testing::kCornerColours);
}

TEST(ThumbnailSizeTest, FitsIntoTheBoxOrCoversIt) {
  EXPECT_EQ(ThumbnailSize({4000, 3000}, {640, 640, false}), (Size{640, 480}));
  EXPECT_EQ(ThumbnailSize({4000, 3000}, {640, 640, true}), (Size{853, 640}));
  EXPECT_EQ(ThumbnailSize({3000, 4000}, {640, 640, true}), (Size{640, 853}));
  EXPECT_EQ(ThumbnailSize({4000, 3000}, {640, 100, false}), (Size{133, 100}));
}

TEST(ThumbnailSizeTest, RoundsHalvesUp) {
  EXPECT_EQ(ThumbnailSize({200, 101}, {100, 100, false}), (Size{100, 51}));
  EXPECT_EQ(ThumbnailSize({200, 99}, {100, 100, false}), (Size{100, 50}));
}

TEST(ThumbnailSizeTest, NeverEnlarges) {
  EXPECT_EQ(ThumbnailSize({300, 200}, {640, 640, false}), (Size{300, 200}));
  EXPECT_EQ(ThumbnailSize({300, 200}, {640, 640, true}), (Size{300, 200}));
  EXPECT_EQ(ThumbnailSize({2000, 100}, {640, 640, true}), (Size{2000, 100}));
}

TEST(ThumbnailSizeTest, ASideIsAtLeastOnePixel) {
  EXPECT_EQ(ThumbnailSize({20000, 10}, {120, 120, false}), (Size{120, 1}));
  EXPECT_EQ(ThumbnailSize({1, 1}, {120, 120, true}), (Size{1, 1}));
}

TEST_F(MakeThumbnailsTest, EveryLaterThumbnailIsMadeFromTheFirst) {
  MemoryImage reader(keldo::testing::FourCorners(400, 300));
  const auto images = Make({StepOf(120, true), StepOf(80), StepOf(500)}, reader);
  EXPECT_EQ(images[0].width, 160);
  EXPECT_EQ(images[0].height, 120);
  EXPECT_EQ(images[1].width, 80);
  EXPECT_EQ(images[1].height, 60);
  EXPECT_EQ(images[2].width, 160) << "as large as the first thumbnail, not as the image";
  for (const Image& image : images)
    EXPECT_LT(DistanceFromUpright(image), 8);
}

TEST_F(MakeThumbnailsTest, RotatingTheFirstRotatesTheOthers) {
  for (int orientation = 1; orientation <= 8; ++orientation) {
    MemoryImage reader(
        keldo::testing::StoredWith(orientation, keldo::testing::FourCorners(90, 60)));
    reader.info_to_change().orientation = orientation;
    std::vector<Step> steps{StepOf(60), StepOf(30)};
    for (Step& step : steps)
      step.auto_orient = true;
    for (const Image& image : Make(steps, reader)) {
      EXPECT_GT(image.width, image.height) << orientation;
      EXPECT_LT(DistanceFromUpright(image), 8) << orientation;
    }
  }
}

TEST_F(MakeThumbnailsTest, RotatesBeforeItMirrors) {
  MemoryImage reader(keldo::testing::StoredWith(5, keldo::testing::FourCorners(90, 60)));
  Step step = StepOf(60);
  step.rotate = 90;
  step.flop = true;
  EXPECT_LT(DistanceFromUpright(Make({step}, reader).front()), 8);
}

// Each thumbnail has its own option: the second's rotation comes on top of the first's.
TEST_F(MakeThumbnailsTest, ALaterRotationAddsToTheFirst) {
  MemoryImage reader(keldo::testing::StoredWith(3, keldo::testing::FourCorners(90, 60)));
  std::vector<Step> steps{StepOf(60), StepOf(30)};
  steps[0].rotate = 90;
  steps[1].rotate = 90;
  EXPECT_LT(DistanceFromUpright(Make(steps, reader).back()), 8);
}

TEST_F(MakeThumbnailsTest, AReducedDecodeGivesTheSizeOfTheFullOne) {
  MemoryImage reader(keldo::testing::FourCorners(101, 76));
  reader.info_to_change().full_width = 201;
  reader.info_to_change().full_height = 151;
  const Image image = Make({StepOf(100)}, reader).front();
  EXPECT_EQ(image.width, 100);
  EXPECT_EQ(image.height, 75);
}

TEST_F(MakeThumbnailsTest, SharpensAnImageThatKeepsItsSize) {
  const Image natural = keldo::testing::NaturalImage(100, 80);
  MemoryImage plain_reader(natural);
  const Image plain = Make({StepOf(500)}, plain_reader).front();
  MemoryImage reader(natural);
  Step step = StepOf(500);
  step.unsharp = Sharpening{0.5, 0.5, 3, 0};
  const Image sharpened = Make({step}, reader).front();
  EXPECT_GT(keldo::testing::Psnr(plain, natural), 32);
  EXPECT_LT(keldo::testing::Psnr(sharpened, natural), 30);
}

TEST_F(MakeThumbnailsTest, KeepsDensitySamplingAndProfileOfTheSource) {
  MemoryImage reader(keldo::testing::FourCorners(90, 60));
  reader.info_to_change().density = {2, 118, 118};
  reader.info_to_change().sampling = JpegSampling{{2, 1, 1}, {2, 1, 1}};
  reader.info_to_change().icc = {'o', 'w', 'n'};
  const std::vector<std::uint8_t> attached{'n', 'e', 'w'};
  static_cast<void>(Make({StepOf(60), StepOf(30)}, reader, attached));
  for (const std::size_t i : {0U, 1U}) {
    const auto facts = keldo::testing::ReadJpegFacts(Content(i)).value();
    EXPECT_EQ(facts.density_unit, 2);
    EXPECT_EQ(facts.density_x, 118);
    EXPECT_EQ(facts.components.front().horizontal, 2);
    EXPECT_EQ(facts.icc, "own");
  }
}

TEST_F(MakeThumbnailsTest, AttachesAProfileWhereThereIsNone) {
  MemoryImage reader(keldo::testing::FourCorners(90, 60));
  const std::vector<std::uint8_t> attached{'n', 'e', 'w'};
  static_cast<void>(Make({StepOf(60)}, reader, attached));
  EXPECT_EQ(keldo::testing::ReadJpegFacts(Content(0))->icc, "new");
}

TEST_F(MakeThumbnailsTest, DropsTheProfileOfAGrayImage) {
  MemoryImage reader(keldo::testing::Plain(90, 60, {80, 80, 80}));
  reader.info_to_change().layout = PixelLayout::kGray;
  reader.info_to_change().icc = {'o', 'w', 'n'};
  static_cast<void>(Make({StepOf(60)}, reader));
  EXPECT_EQ(keldo::testing::ReadJpegFacts(Content(0))->icc, "");
}

TEST_F(MakeThumbnailsTest, WritesNothingOfAnImageThatEndsEarly) {
  MemoryImage reader(keldo::testing::FourCorners(90, 60));
  reader.fails_at = 59;
  EXPECT_THROW(static_cast<void>(Make({StepOf(60), StepOf(30)}, reader)), ImageError);
  EXPECT_EQ(Content(0), "");
  EXPECT_EQ(Content(1), "");
}

TEST_F(MakeThumbnailsTest, HandlesOnePixel) {
  MemoryImage reader(keldo::testing::Plain(1, 1, {200, 100, 50}));
  std::vector<Step> steps{StepOf(1280, true), StepOf(120)};
  steps[1].unsharp = Sharpening{0.5, 0.5, 1.25, 0};
  for (const Image& image : Make(steps, reader)) {
    EXPECT_EQ(image.pixels.size(), 1U);
    EXPECT_NEAR(image.At(0, 0)[0], 200, 3);
  }
}

}  // namespace
}  // namespace keldo::convert
