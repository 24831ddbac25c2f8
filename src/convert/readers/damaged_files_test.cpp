// Any damage gives rows or an ImageError, and nothing that the sanitizers would report.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <random>

#include "support/sample_files.h"

namespace keldo::convert {
namespace {

using testing::Data;

struct Sample {
  std::string name;
  std::function<Data()> make;
};

void PrintTo(const Sample& sample, std::ostream* stream) {
  *stream << sample.name;
}

Data Bitmap() {
  Data file;
  testing::Append(file, "BM");
  for (const std::uint32_t number : {0U, 0U, 54U, 40U, 8U, 6U, 0x180001U, 0U, 0U, 0U, 0U, 0U, 0U})
    testing::AppendLittle32(file, number);
  file.resize(54 + std::size_t{8} * 6 * 3);
  return file;
}

Data Pixmap() {
  Data file;
  testing::Append(file, "P6 # wide\n8 6\n65535\n");
  file.resize(file.size() + std::size_t{8} * 6 * 6);
  return file;
}

// Small limits, so that a damaged size is refused rather than read to its end.
constexpr Limits kSmall{.side = 2000, .pixels = 1'000'000, .memory_bytes = 16 << 20};

class DamagedFilesTest : public ::testing::TestWithParam<Sample> {};

TEST_P(DamagedFilesTest, FilesCutOffAnywhereAreRefusedOrRead) {
  const Data whole = GetParam().make();
  ASSERT_EQ(testing::RefusalOf(whole, kSmall), std::nullopt);
  int refused = 0;
  for (std::size_t part = 0; part < 20; ++part) {
    // A copy, so that the sanitizer sees a read past its end.
    const Data cut(whole.begin(),
                   whole.begin() + static_cast<std::ptrdiff_t>(whole.size() * part / 20));
    if (testing::RefusalOf(cut, kSmall)) ++refused;
  }
  EXPECT_GE(refused, 10) << "most of the file is needed";
}

TEST_P(DamagedFilesTest, FilesWithWrongBytesAreRefusedOrRead) {
  const Data whole = GetParam().make();
  std::mt19937 random(20261121);
  int refused = 0;
  for (int round = 0; round < 200; ++round) {
    Data damaged = whole;
    // Damage does most in the header.
    const std::size_t range =
        round % 2 == 0 ? std::min<std::size_t>(whole.size(), 100) : whole.size();
    for (int i = 0; i <= round % 4; ++i)
      damaged[random() % range] = static_cast<std::uint8_t>(random());
    if (testing::RefusalOf(damaged, kSmall)) ++refused;
  }
  EXPECT_GT(refused, 0);
}

INSTANTIATE_TEST_SUITE_P(
    Formats, DamagedFilesTest,
    ::testing::Values(
        Sample{"bmp", Bitmap}, Sample{"pnm", Pixmap},
        Sample{"png", [] { return testing::PngFile({.depth = 16, .colour = 6}); }},
        Sample{"png_interlaced", [] { return testing::PngFile({.interlaced = true}); }},
        Sample{"png_palette",
               [] {
                 return testing::PngFile(
                     {.colour = 3, .chunks = {{"PLTE", Data(300, 7)}, {"tRNS", {1, 2, 3}}}});
               }},
        Sample{"tiff", [] { return testing::TiffFile({.compression = 5, .density = 72}); }},
        Sample{"tiff_tiles",
               [] {
                 return testing::TiffFile(
                     {.samples = 4, .compression = 8, .extra_sample = 2, .tile = 16, .icc = {1}});
               }},
        Sample{"tiff_palette", [] { return testing::TiffFile({.samples = 1, .photometric = 3}); }},
        Sample{"webp", [] { return testing::WebpFile({.lossless = false}); }},
        Sample{"webp_extended",
               [] {
                 return testing::WebpFile(
                     {.alpha = true, .icc = Data(30, 1), .exif = testing::ExifBlock({})});
               }},
        Sample{"gif", [] { return testing::GifFile({.frames = {{.own_palette = true}}}); }},
        Sample{"gif_interlaced",
               [] { return testing::GifFile({.frames = {{.interlaced = true}}}); }},
        Sample{
            "heic",
            [] { return testing::HeifFile({.icc = Data(30, 1), .exif = testing::ExifBlock({})}); }},
        Sample{"avif", [] { return testing::HeifFile({.av1 = true, .alpha = true}); }}),
    [](const auto& sample) { return sample.param.name; });

}  // namespace
}  // namespace keldo::convert
