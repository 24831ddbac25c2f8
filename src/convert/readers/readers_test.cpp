#include "convert/readers/readers.h"

#include <gtest/gtest.h>

#include "support/sample_files.h"

namespace keldo::convert {
namespace {

TEST(LoadCodecTest, LoadsTheCodecsOfItsOwnFormatsOnly) {
  for (const Format format : {Format::kJpeg, Format::kBmp, Format::kPnm, Format::kPng,
                              Format::kTiff, Format::kWebp, Format::kGif, Format::kHeif}) {
    EXPECT_TRUE(LoadCodec(format)) << static_cast<int>(format);
  }
  for (const Format format : {Format::kUnknown, Format::kOtherPnm, Format::kPhotoshop}) {
    EXPECT_FALSE(LoadCodec(format)) << static_cast<int>(format);
  }
}

TEST(DetectFormatTest, DetectsWhatEachEncoderWrites) {
  EXPECT_EQ(media::DetectFormat(testing::PngFile({})), Format::kPng);
  EXPECT_EQ(media::DetectFormat(testing::TiffFile({})), Format::kTiff);
  EXPECT_EQ(media::DetectFormat(testing::WebpFile({})), Format::kWebp);
  EXPECT_EQ(media::DetectFormat(testing::GifFile({})), Format::kGif);
  EXPECT_EQ(media::DetectFormat(testing::HeifFile({})), Format::kHeif);
  EXPECT_EQ(media::DetectFormat(testing::HeifFile({.av1 = true})), Format::kHeif);
}

TEST(OpenImageTest, RefusesAnUnknownFormatAsUnsupported) {
  try {
    (void)OpenImage(Format::kUnknown, {}, {});
    FAIL();
  } catch (const ImageError& error) {
    EXPECT_EQ(error.kind(), ImageError::Kind::kUnsupported);
  }
}

}  // namespace
}  // namespace keldo::convert
