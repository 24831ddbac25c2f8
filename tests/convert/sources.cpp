#include "convert/sources.h"

#include <algorithm>
#include <fstream>
#include <iterator>
#include <stdexcept>

#include "convert/running.h"

namespace keldo::testing {
namespace {

std::string Filled(std::string_view word, const std::string& in, const std::string& out) {
  if (word == "IN") return in;
  const std::size_t at = word.find("OUT");
  if (at == std::string_view::npos) return std::string(word);
  return std::string(word.substr(0, at)) + out + std::string(word.substr(at + 3));
}

}  // namespace

const std::vector<SourceKind>& SourceKinds() {
  static const std::vector<SourceKind> kKinds = {
      {"Jpeg420", "jpg", {"cjpeg", "-quality", "92", "-sample", "2x2", "-outfile", "OUT", "IN"}},
      {"Jpeg422", "jpg", {"cjpeg", "-quality", "92", "-sample", "2x1", "-outfile", "OUT", "IN"}},
      {"Jpeg440", "jpg", {"cjpeg", "-quality", "92", "-sample", "1x2", "-outfile", "OUT", "IN"}},
      {"Jpeg444", "jpg", {"cjpeg", "-quality", "92", "-sample", "1x1", "-outfile", "OUT", "IN"}},
      {"Jpeg411", "jpg", {"cjpeg", "-quality", "92", "-sample", "4x1", "-outfile", "OUT", "IN"}},
      {"JpegGray", "jpg", {"cjpeg", "-quality", "92", "-grayscale", "-outfile", "OUT", "IN"}},
      {"JpegRgb", "jpg", {"cjpeg", "-quality", "92", "-rgb", "-outfile", "OUT", "IN"}},
      {"JpegProgressive",
       "jpg",
       {"cjpeg", "-quality", "92", "-progressive", "-outfile", "OUT", "IN"}},
      {"JpegArithmetic",
       "jpg",
       {"cjpeg", "-quality", "92", "-arithmetic", "-outfile", "OUT", "IN"}},
      {"JpegRestart",
       "jpg",
       {"cjpeg", "-quality", "92", "-restart", "3B", "-outfile", "OUT", "IN"}},
      {"JpegCmyk", "jpg", {"convert", "IN", "-colorspace", "CMYK", "-quality", "92", "jpeg:OUT"}},
      {"JpegDense",
       "jpg",
       {"convert", "IN", "-units", "PixelsPerInch", "-density", "300x240", "-quality", "92",
        "jpeg:OUT"}},
      {"Bmp", "bmp", {"convert", "IN", "-type", "TrueColor", "BMP3:OUT"}},
      {"BmpV4", "bmp", {"convert", "IN", "BMP:OUT"}},
      {"Ppm", "ppm", {"convert", "IN", "-depth", "8", "ppm:OUT"}},
      {"Ppm16",
       "ppm",
       {"convert", "IN", "-evaluate", "multiply", "0.93", "-depth", "16", "ppm:OUT"}},
      {"Pgm", "pgm", {"convert", "IN", "-colorspace", "gray", "-depth", "8", "pgm:OUT"}},
      {"Pgm16",
       "pgm",
       {"convert", "IN", "-colorspace", "gray", "-evaluate", "multiply", "0.93", "-depth", "16",
        "pgm:OUT"}},
      {"Png", "png", {"convert", "IN", "PNG24:OUT"}},
      {"PngInterlaced", "png", {"convert", "IN", "-interlace", "PNG", "PNG24:OUT"}},
      {"Png16", "png", {"convert", "IN", "-evaluate", "multiply", "0.93", "PNG48:OUT"}},
      {"PngPalette", "png", {"convert", "IN", "-colors", "200", "PNG8:OUT"}},
      {"PngGray",
       "png",
       {"convert", "IN", "-colorspace", "gray", "-depth", "8", "-define", "png:color-type=0",
        "png:OUT"}},
      {"PngGray16",
       "png",
       {"convert", "IN", "-colorspace", "gray", "-evaluate", "multiply", "0.93", "-depth", "16",
        "-define", "png:color-type=0", "png:OUT"}},
      {"PngBlackAndWhite", "png", {"convert", "IN", "-monochrome", "png:OUT"}},
      {"PngAlpha",
       "png",
       {"convert", "IN", "(", "+clone", "-colorspace", "gray", "-auto-level", ")", "-compose",
        "CopyOpacity", "-composite", "PNG32:OUT"}},
      {"PngAlpha16",
       "png",
       {"convert", "IN", "(", "+clone", "-colorspace", "gray", "-auto-level", ")", "-compose",
        "CopyOpacity", "-composite", "PNG64:OUT"}},
      {"PngGrayAlpha",
       "png",
       {"convert", "IN", "-colorspace", "gray", "(", "+clone", "-negate", "-auto-level", ")",
        "-compose", "CopyOpacity", "-composite", "-define", "png:color-type=4", "png:OUT"}},
      {"PngPaletteClear",
       "png",
       {"convert", "IN", "-colors", "100", "-fuzz", "8%", "-transparent", "#B06A20", "PNG8:OUT"}},
      {"PngBackground",
       "png",
       {"convert", "IN", "(", "+clone", "-colorspace", "gray", "-auto-level", ")", "-compose",
        "CopyOpacity", "-composite", "-background", "#20C060", "-define", "png:include-chunk=bKGD",
        "PNG32:OUT"}},
      {"PngDense",
       "png",
       {"convert", "IN", "-units", "PixelsPerInch", "-density", "150", "PNG24:OUT"}},
      {"Tiff", "tif", {"convert", "IN", "-compress", "None", "tiff:OUT"}},
      {"TiffLzw", "tif", {"convert", "IN", "-compress", "LZW", "tiff:OUT"}},
      {"TiffZip", "tif", {"convert", "IN", "-compress", "Zip", "tiff:OUT"}},
      {"TiffJpeg", "tif", {"convert", "IN", "-compress", "JPEG", "-quality", "92", "tiff:OUT"}},
      {"TiffTiled", "tif", {"convert", "IN", "-define", "tiff:tile-geometry=128x128", "tiff:OUT"}},
      {"Tiff16",
       "tif",
       {"convert", "IN", "-evaluate", "multiply", "0.93", "-depth", "16", "tiff:OUT"}},
      {"TiffGray", "tif", {"convert", "IN", "-colorspace", "gray", "-depth", "8", "tiff:OUT"}},
      {"TiffPalette", "tif", {"convert", "IN", "-type", "Palette", "-colors", "200", "tiff:OUT"}},
      {"TiffFax", "tif", {"convert", "IN", "-monochrome", "-compress", "Group4", "tiff:OUT"}},
      {"TiffCmyk", "tif", {"convert", "IN", "-colorspace", "CMYK", "tiff:OUT"}},
      {"TiffAlpha",
       "tif",
       {"convert", "IN", "(", "+clone", "-colorspace", "gray", "-auto-level", ")", "-compose",
        "CopyOpacity", "-composite", "tiff:OUT"}},
      {"TiffPages", "tif", {"convert", "IN", "(", "+clone", "-flip", ")", "tiff:OUT"}},
      {"TiffRotated", "tif", {"convert", "IN", "-orient", "RightTop", "tiff:OUT"}},
      {"Webp", "webp", {"convert", "IN", "-quality", "92", "webp:OUT"}},
      {"WebpLossless", "webp", {"convert", "IN", "-define", "webp:lossless=true", "webp:OUT"}},
      {"WebpAlpha",
       "webp",
       {"convert", "IN", "(", "+clone", "-colorspace", "gray", "-auto-level", ")", "-compose",
        "CopyOpacity", "-composite", "-define", "webp:lossless=true", "webp:OUT"}},
      {"Gif", "gif", {"convert", "IN", "gif:OUT"}},
      {"GifInterlaced", "gif", {"convert", "IN", "-interlace", "GIF", "gif:OUT"}},
      {"GifClear", "gif", {"convert", "IN", "-fuzz", "8%", "-transparent", "#B06A20", "gif:OUT"}},
      {"GifAnimated", "gif", {"convert", "IN", "(", "+clone", "-flip", ")", "gif:OUT"}},
      {"Heic", "heic", {"heif-enc", "-q", "85", "-o", "OUT", "IN"}},
      {"Avif", "avif", {"heif-enc", "-A", "-q", "80", "-p", "speed=9", "-o", "OUT", "IN"}},
  };
  return kKinds;
}

const SourceKind& SourceKindOf(std::string_view name) {
  const auto found = std::ranges::find(SourceKinds(), name, &SourceKind::name);
  if (found == SourceKinds().end()) throw std::out_of_range("no such kind: " + std::string(name));
  return *found;
}

std::string WriteSource(const SourceKind& kind, const Image& image, const std::string& stem,
                        const std::vector<std::string>& environment) {
  // heif-enc reads PNG but not PPM; all other tools read both.
  const std::string plain = WriteContent(stem + ".plain.ppm", EncodePpm(image));
  std::string out = stem + "." + std::string(kind.extension);
  std::string in = plain;
  if (kind.command.front() == "heif-enc") {
    in = stem + ".plain.png";
    RunTool({"convert", plain, "PNG24:" + in}, environment);
  }
  std::vector<std::string> command;
  for (const std::string_view word : kind.command)
    command.push_back(Filled(word, in, out));
  RunTool(command, environment);
  return out;
}

std::string WithOrientation(const std::string& jpeg, int orientation) {
  using std::string_literals::operator""s;
  constexpr std::size_t kAfterStart = 2;
  const std::string exif = "Exif\0\0II*\0\x08\0\0\0\x01\0\x12\x01\x03\0\x01\0\0\0"s +
                           static_cast<char>(orientation) + "\0\0\0\0\0\0\0"s;
  const auto length = static_cast<char>(exif.size() + 2);
  return std::string(jpeg).insert(kAfterStart, "\xFF\xE1\0"s + length + exif);
}

std::string ReadContent(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) throw std::runtime_error("cannot read " + path);
  return {std::istreambuf_iterator<char>(file), {}};
}

std::string WriteContent(const std::string& path, const std::string& content) {
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  file << content;
  if (!file.flush()) throw std::runtime_error("cannot write " + path);
  return path;
}

}  // namespace keldo::testing
