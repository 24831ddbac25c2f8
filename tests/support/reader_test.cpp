#include "support/reader_test.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>

#include "convert/readers/readers.h"
#include "support/temp_dir.h"

namespace keldo::convert::testing {
namespace {

void AppendPixel(const std::uint8_t* pixel, PixelLayout layout, Data& rgb) {
  switch (layout) {
    case PixelLayout::kGray:
      rgb.insert(rgb.end(), {pixel[0], pixel[0], pixel[0]});
      break;
    case PixelLayout::kRgb:
      rgb.insert(rgb.end(), {pixel[0], pixel[1], pixel[2]});
      break;
    case PixelLayout::kBgr:
      rgb.insert(rgb.end(), {pixel[2], pixel[1], pixel[0]});
      break;
  }
}

Data ContentOf(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

}  // namespace

Image ReadWholeImage(const Data& file, const Limits& limits) {
  const Format format = media::DetectFormat(file);
  if (!LoadCodec(format)) {
    throw ImageError(ImageError::Kind::kUnsupported, "no codec for this file");
  }
  ReadOptions options;
  options.limits = limits;
  options.first_box = {.width = limits.side, .height = limits.side, .fill = true};
  const std::unique_ptr<ImageReader> reader = OpenImage(format, file, options);
  Image image{.info = reader->info(), .rgb = {}};
  const std::ptrdiff_t channels = ChannelsOf(image.info.layout);
  for (int y = 0; y < image.info.height; ++y) {
    const std::uint8_t* row = reader->NextRow();
    for (int x = 0; x < image.info.width; ++x)
      AppendPixel(row + x * channels, image.info.layout, image.rgb);
  }
  return image;
}

std::optional<ImageError::Kind> RefusalOf(const Data& file, const Limits& limits) {
  try {
    (void)ReadWholeImage(file, limits);
  } catch (const ImageError& error) {
    return error.kind();
  }
  return std::nullopt;
}

// Asks ImageMagick for 16 bits and rounds them, since its own conversion to 8 bits truncates.
Data ImageMagickPixels(const Data& file) {
  const keldo::testing::TempDir directory;
  const std::string input = directory.path() + "/input";
  const std::string output = directory.path() + "/output";
  std::ofstream(input, std::ios::binary)
      .write(reinterpret_cast<const char*>(file.data()), static_cast<std::streamsize>(file.size()));
  const std::string command = "/usr/bin/convert '" + input +
                              "[0]' +repage -flatten -colorspace sRGB -depth 16 -endian MSB rgb:'" +
                              output + "' 2>/dev/null </dev/null";
  if (std::system(command.c_str()) != 0) return {};
  const Data words = ContentOf(output);
  Data pixels;
  for (std::size_t i = 0; i + 1 < words.size(); i += 2) {
    const unsigned word = (unsigned{words[i]} << 8U) | words[i + 1];
    pixels.push_back(static_cast<std::uint8_t>((word * 255 + 32767) / 65535));
  }
  return pixels;
}

int LargestDifference(const Data& a, const Data& b) {
  constexpr int kDifferentLengths = 1000;
  if (a.size() != b.size()) return kDifferentLengths;
  int largest = 0;
  for (std::size_t i = 0; i < a.size(); ++i)
    largest = std::max(largest, std::abs(a[i] - b[i]));
  return largest;
}

Data SamplePixels(int width, int height, int channels) {
  Data pixels;
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      for (int c = 0; c < channels; ++c)
        pixels.push_back(static_cast<std::uint8_t>(x * 5 + y * 3 + c * 70));
    }
  }
  return pixels;
}

Data ExifBlock(const ExifFacts& facts) {
  Data block;
  const auto put16 = facts.big_endian ? AppendBig16 : AppendLittle16;
  const auto put32 = facts.big_endian ? AppendBig32 : AppendLittle32;
  Append(block, facts.big_endian ? "MM" : "II");
  put16(block, 42);
  put32(block, 8);
  const bool density = facts.denominator != 0;
  const std::uint32_t entries = density ? 4 : 1;
  const std::uint32_t values = 8 + 2 + 12 * entries + 4;
  put16(block, entries);
  const auto put_short = [&](std::uint32_t tag, std::uint32_t value) {
    put16(block, tag);
    put16(block, 3);
    put32(block, 1);
    put16(block, value);
    put16(block, 0);
  };
  put_short(0x112, facts.orientation);
  if (density) {
    for (const std::uint32_t tag : {0x11AU, 0x11BU}) {
      put16(block, tag);
      put16(block, 5);
      put32(block, 1);
      put32(block, values);
    }
    put_short(0x128, facts.unit);
  }
  put32(block, 0);
  if (density) {
    put32(block, facts.numerator);
    put32(block, facts.denominator);
  }
  return block;
}

void Append(Data& to, const std::string& bytes) {
  to.insert(to.end(), bytes.begin(), bytes.end());
}

void AppendLittle16(Data& to, std::uint32_t number) {
  to.push_back(static_cast<std::uint8_t>(number));
  to.push_back(static_cast<std::uint8_t>(number >> 8U));
}

void AppendLittle32(Data& to, std::uint32_t number) {
  AppendLittle16(to, number);
  AppendLittle16(to, number >> 16U);
}

void AppendBig16(Data& to, std::uint32_t number) {
  to.push_back(static_cast<std::uint8_t>(number >> 8U));
  to.push_back(static_cast<std::uint8_t>(number));
}

void AppendBig32(Data& to, std::uint32_t number) {
  AppendBig16(to, number >> 16U);
  AppendBig16(to, number);
}

}  // namespace keldo::convert::testing
