#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "convert/readers/readers.h"
// Needs the types of cstdio.
#include <jpeglib.h>

#include "convert/pixels/image.h"
#include "support/image_likeness.h"
#include "support/images.h"
#include "support/natural_image.h"

namespace keldo::convert {
namespace {

using keldo::testing::Image;

Bytes BytesOf(const std::string& content) {
  return {reinterpret_cast<const std::uint8_t*>(content.data()), content.size()};
}

ReadOptions WithBox(int side, bool fill = false) {
  ReadOptions options;
  options.first_box = {side, side, fill};
  return options;
}

Image ReadAll(ImageReader& reader) {
  const ImageInfo& info = reader.info();
  Image image{info.width, info.height, {}};
  const int channels = ChannelsOf(info.layout);
  for (int y = 0; y < info.height; ++y) {
    const std::uint8_t* row = reader.NextRow();
    for (int x = 0; x < info.width; ++x, row += channels)
      image.pixels.push_back({row[0], row[channels / 2], row[channels - 1]});
  }
  return image;
}

// Changes to libjpeg's defaults.
using Setting = void (*)(jpeg_compress_struct& codec);

std::string Compressed(const std::vector<std::uint8_t>& samples, int width, J_COLOR_SPACE colours,
                       int components, Setting setting = nullptr) {
  jpeg_compress_struct codec{};
  jpeg_error_mgr errors{};
  codec.err = jpeg_std_error(&errors);
  jpeg_create_compress(&codec);
  unsigned char* data = nullptr;
  unsigned long size = 0;
  jpeg_mem_dest(&codec, &data, &size);
  codec.image_width = static_cast<JDIMENSION>(width);
  codec.image_height = static_cast<JDIMENSION>(samples.size()) / codec.image_width /
                       static_cast<JDIMENSION>(components);
  codec.input_components = components;
  codec.in_color_space = colours;
  jpeg_set_defaults(&codec);
  jpeg_set_quality(&codec, 95, TRUE);
  if (setting != nullptr) setting(codec);
  jpeg_start_compress(&codec, TRUE);
  const std::size_t stride = codec.image_width * static_cast<std::size_t>(components);
  while (codec.next_scanline < codec.image_height) {
    auto* row = const_cast<JSAMPROW>(samples.data() + codec.next_scanline * stride);
    jpeg_write_scanlines(&codec, &row, 1);
  }
  jpeg_finish_compress(&codec);
  std::string content(reinterpret_cast<const char*>(data), size);
  jpeg_destroy_compress(&codec);
  std::free(data);  // NOLINT(cppcoreguidelines-no-malloc): libjpeg's allocation
  return content;
}

std::string Compressed(const Image& image, Setting setting = nullptr) {
  std::vector<std::uint8_t> samples;
  for (const auto& pixel : image.pixels)
    samples.insert(samples.end(), pixel.begin(), pixel.end());
  return Compressed(samples, image.width, JCS_RGB, 3, setting);
}

ImageError::Kind KindOfFailure(const std::string& content, const ReadOptions& options,
                               std::string* reason = nullptr) {
  try {
    const auto reader = OpenJpeg(BytesOf(content), options);
    static_cast<void>(ReadAll(*reader));
  } catch (const ImageError& error) {
    if (reason != nullptr) *reason = error.what();
    return error.kind();
  }
  ADD_FAILURE() << "it was read";
  return ImageError::Kind::kOutput;
}

TEST(JpegReaderTest, ReadsEveryKindOfColourFile) {
  const Image natural = keldo::testing::NaturalImage(203, 101);
  const Setting settings[] = {
      nullptr,
      [](jpeg_compress_struct& codec) { codec.comp_info[0].v_samp_factor = 1; },
      [](jpeg_compress_struct& codec) {
        codec.comp_info[0].h_samp_factor = codec.comp_info[0].v_samp_factor = 1;
      },
      [](jpeg_compress_struct& codec) { jpeg_simple_progression(&codec); },
      [](jpeg_compress_struct& codec) { codec.arith_code = TRUE; },
      [](jpeg_compress_struct& codec) { codec.restart_in_rows = 1; },
      [](jpeg_compress_struct& codec) { jpeg_set_colorspace(&codec, JCS_RGB); },
  };
  for (const Setting setting : settings) {
    const std::string content = Compressed(natural, setting);
    const auto reader = OpenJpeg(BytesOf(content), WithBox(1000));
    EXPECT_EQ(reader->info().layout, PixelLayout::kRgb);
    EXPECT_FALSE(reader->info().has_alpha_or_palette);
    const Image read = ReadAll(*reader);
    ASSERT_EQ(read.width, 203);
    ASSERT_EQ(read.height, 101);
    EXPECT_GT(keldo::testing::Psnr(read, natural), 30) << &setting - settings;
  }
}

TEST(JpegReaderTest, ReportsTheSampling) {
  const std::string content =
      Compressed(keldo::testing::FourCorners(40, 40),
                 [](jpeg_compress_struct& codec) { codec.comp_info[0].v_samp_factor = 1; });
  EXPECT_EQ(OpenJpeg(BytesOf(content), WithBox(1000))->info().sampling,
            (JpegSampling{{2, 1, 1}, {1, 1, 1}}));
}

TEST(JpegReaderTest, ReadsGrayAsOneChannel) {
  const std::string content =
      EncodeJpeg(keldo::testing::Plain(30, 20, {80, 80, 80}), {.gray = true});
  const auto reader = OpenJpeg(BytesOf(content), WithBox(1000));
  EXPECT_EQ(reader->info().layout, PixelLayout::kGray);
  EXPECT_TRUE(reader->info().has_alpha_or_palette);
  EXPECT_NEAR(ReadAll(*reader).At(20, 10)[0], 80, 1);
}

// Each colour is the product of its stored, inverted ink and the stored, inverted black.
TEST(JpegReaderTest, ReadsCmykInverted) {
  std::vector<std::uint8_t> samples;
  for (int i = 0; i < 16 * 16; ++i)
    samples.insert(samples.end(), {255, 128, 0, 128});
  for (const J_COLOR_SPACE stored : {JCS_CMYK, JCS_YCCK}) {
    const std::string content =
        stored == JCS_CMYK ? Compressed(samples, 16, JCS_CMYK, 4)
                           : Compressed(samples, 16, JCS_CMYK, 4, [](jpeg_compress_struct& codec) {
                               jpeg_set_colorspace(&codec, JCS_YCCK);
                             });
    const auto reader = OpenJpeg(BytesOf(content), WithBox(1000));
    EXPECT_FALSE(reader->info().sampling.has_value());
    const auto pixel = ReadAll(*reader).At(8, 8);
    EXPECT_NEAR(pixel[0], 128, 3);
    EXPECT_NEAR(pixel[1], 64, 3);
    EXPECT_NEAR(pixel[2], 0, 3);
  }
}

TEST(JpegReaderTest, KeepsOrientationProfileAndDensity) {
  const std::string content = EncodeJpeg(keldo::testing::FourCorners(30, 20),
                                         {.orientation = 6, .icc = std::string(70'000, 'p')});
  const auto reader = OpenJpeg(BytesOf(content), WithBox(1000));
  EXPECT_EQ(reader->info().orientation, 6);
  EXPECT_EQ(reader->info().icc, std::vector<std::uint8_t>(70'000, 'p'));
  const std::string dense =
      Compressed(keldo::testing::FourCorners(30, 20), [](jpeg_compress_struct& codec) {
        codec.density_unit = 1;
        codec.X_density = 300;
        codec.Y_density = 200;
      });
  EXPECT_EQ(OpenJpeg(BytesOf(dense), WithBox(1000))->info().density, (Density{1, 300, 200}));
}

TEST(JpegReaderTest, ReducesALargeImageWhileDecoding) {
  const std::string content = EncodeJpeg(keldo::testing::Plain(2401, 2000, {90, 120, 150}));
  const auto width_for = [&](const ReadOptions& options) {
    const auto reader = OpenJpeg(BytesOf(content), options);
    EXPECT_EQ(reader->info().full_width, 2401);
    EXPECT_EQ(reader->info().full_height, 2000);
    return reader->info().width;
  };
  EXPECT_EQ(width_for(WithBox(1202)), 2401);
  EXPECT_EQ(width_for(WithBox(1201)), 1201);
  EXPECT_EQ(width_for(WithBox(1000, true)), 1201);
  EXPECT_EQ(width_for(WithBox(602)), 1201);
  EXPECT_EQ(width_for(WithBox(600)), 601);
  EXPECT_EQ(width_for(WithBox(120)), 301);
}

TEST(JpegReaderTest, ReadsASmallImageAtFullSize) {
  const std::string content = EncodeJpeg(keldo::testing::FourCorners(800, 800));
  EXPECT_EQ(OpenJpeg(BytesOf(content), WithBox(100))->info().width, 800);
}

TEST(JpegReaderTest, ReadsTheRowsOfACutOffFile) {
  const Image natural = keldo::testing::NaturalImage(160, 160);
  for (const Setting setting : {Setting{nullptr}, Setting{[](jpeg_compress_struct& codec) {
                                  jpeg_simple_progression(&codec);
                                }}}) {
    const std::string content = Compressed(natural, setting);
    const std::string half = content.substr(0, content.size() / 2);
    const auto reader = OpenJpeg(BytesOf(half), WithBox(1000));
    const Image read = ReadAll(*reader);
    EXPECT_NEAR(read.At(5, 5)[1], natural.At(5, 5)[1], 60);
  }
}

TEST(JpegReaderTest, RefusesAFileCutOffBeforeItsFirstRows) {
  const std::string content = Compressed(keldo::testing::NaturalImage(160, 160));
  const std::size_t data = content.find("\xFF\xDA") + 14;
  std::string reason;
  EXPECT_EQ(KindOfFailure(content.substr(0, data + 20), WithBox(100), &reason),
            ImageError::Kind::kCorrupt);
  EXPECT_EQ(reason, "the file ends before its first rows");
  EXPECT_EQ(KindOfFailure(content.substr(0, 100), WithBox(100), &reason),
            ImageError::Kind::kCorrupt);
  EXPECT_EQ(reason, "the file ends in its header");
  EXPECT_EQ(KindOfFailure("", WithBox(100)), ImageError::Kind::kCorrupt);
  EXPECT_EQ(KindOfFailure("\xFF\xD8\xFFgarbage", WithBox(100)), ImageError::Kind::kCorrupt);
}

TEST(JpegReaderTest, ChecksTheLimitsInTheHeader) {
  ReadOptions options = WithBox(100);
  options.limits.side = 60'000;
  EXPECT_EQ(KindOfFailure(keldo::testing::JpegHeaderOf(65'000, 10), options),
            ImageError::Kind::kLimit);
  options.limits.pixels = 1'000;
  EXPECT_EQ(KindOfFailure(keldo::testing::JpegHeaderOf(100, 11), options),
            ImageError::Kind::kLimit);
}

// Only a progressive file is held whole in memory.
TEST(JpegReaderTest, LimitsTheMemoryOfAProgressiveFile) {
  const Image image = keldo::testing::FourCorners(400, 400);
  ReadOptions options = WithBox(100);
  options.limits.memory_bytes = 500'000;
  const std::string plain = Compressed(image);
  EXPECT_EQ(ReadAll(*OpenJpeg(BytesOf(plain), options)).width, 400);
  EXPECT_EQ(
      KindOfFailure(
          Compressed(image, [](jpeg_compress_struct& codec) { jpeg_simple_progression(&codec); }),
          options),
      ImageError::Kind::kLimit);
}

// Ten thousand scans of nothing would keep the decoder busy for minutes.
TEST(JpegReaderTest, RefusesAFileOfEndlessScans) {
  const std::string content =
      Compressed(keldo::testing::FourCorners(64, 64),
                 [](jpeg_compress_struct& codec) { jpeg_simple_progression(&codec); });
  const std::size_t last_scan = content.rfind("\xFF\xDA");
  const std::string scan = content.substr(last_scan, content.size() - 2 - last_scan);
  std::string endless = content.substr(0, content.size() - 2);
  for (int i = 0; i < 10'000; ++i)
    endless += scan;
  std::string reason;
  EXPECT_EQ(KindOfFailure(endless, WithBox(100), &reason), ImageError::Kind::kLimit);
  EXPECT_EQ(reason, "the file has more than 500 scans");
}

TEST(JpegReaderTest, RefusesOtherKindsOfJpegAsUnsupported) {
  std::string content = Compressed(keldo::testing::FourCorners(64, 64));
  const std::size_t frame = content.find("\xFF\xC0");
  content[frame + 4] = 12;  // bits per sample
  EXPECT_EQ(KindOfFailure(content, WithBox(100)), ImageError::Kind::kUnsupported);
  content[frame + 4] = 8;
  content[frame + 1] = '\xC3';  // lossless
  EXPECT_EQ(KindOfFailure(content, WithBox(100)), ImageError::Kind::kUnsupported);
}

TEST(JpegReaderTest, ReportsDamageOrReadsOn) {
  const std::string good = Compressed(keldo::testing::NaturalImage(120, 90));
  std::mt19937 random(11);
  int failed = 0;
  for (int i = 0; i < 300; ++i) {
    std::string bad = good;
    for (int flips = 0; flips < 3; ++flips)
      bad[random() % bad.size()] = static_cast<char>(random());
    try {
      const auto reader = OpenJpeg(BytesOf(bad), WithBox(100));
      static_cast<void>(ReadAll(*reader));
    } catch (const ImageError&) {
      ++failed;
    }
  }
  EXPECT_GT(failed, 0);
  EXPECT_LT(failed, 300);
}

}  // namespace
}  // namespace keldo::convert
