#include "media/image_header.h"

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <ostream>
#include <string>

#include "platform/index_ipc.h"
#include "support/images.h"
#include "support/temp_dir.h"

namespace keldo::media {

static bool operator==(const ImageHeader& a, const ImageHeader& b) {
  return a.width == b.width && a.height == b.height && a.orientation == b.orientation;
}
static void PrintTo(const ImageHeader& header, std::ostream* out) {
  *out << header.width << "x" << header.height << " orientation " << header.orientation;
}

namespace {

using testing::JpegHeaderOf;
using Header = std::optional<ImageHeader>;

std::string BigEndian(std::uint32_t number) {
  std::string bytes;
  for (const unsigned shift : {24U, 16U, 8U, 0U})
    bytes += static_cast<char>(number >> shift);
  return bytes;
}

std::string LittleEndian(std::uint32_t number, int size) {
  std::string bytes;
  for (int i = 0; i < size; ++i)
    bytes += static_cast<char>(number >> (8U * static_cast<unsigned>(i)));
  return bytes;
}

std::uint32_t Crc(const std::string& bytes) {
  std::uint32_t crc = 0xFFFFFFFF;
  for (const char c : bytes) {
    crc ^= static_cast<unsigned char>(c);
    for (int bit = 0; bit < 8; ++bit)
      crc = (crc >> 1U) ^ ((crc & 1U) != 0 ? 0xEDB88320 : 0);
  }
  return ~crc;
}

std::string PngChunk(const std::string& type, const std::string& data) {
  return BigEndian(static_cast<std::uint32_t>(data.size())) + type + data +
         BigEndian(Crc(type + data));
}

std::string Png(std::uint32_t width, std::uint32_t height) {
  return std::string("\x89PNG\r\n\x1A\n") +
         PngChunk("IHDR", BigEndian(width) + BigEndian(height) + std::string("\x08\x02\0\0\0", 5)) +
         PngChunk("IDAT", "not decoded") + PngChunk("IEND", "");
}

std::string TiffTag(std::uint32_t tag, std::uint32_t value) {
  constexpr std::uint32_t kLong = 4;
  constexpr std::uint32_t kShort = 3;
  const bool is_short = tag == 0x112;
  return LittleEndian(tag, 2) + LittleEndian(is_short ? kShort : kLong, 2) + LittleEndian(1, 4) +
         LittleEndian(value, 4);
}

std::string Tiff(std::uint32_t width, std::uint32_t height, std::uint32_t orientation) {
  return "II" + LittleEndian(42, 2) + LittleEndian(8, 4) + LittleEndian(3, 2) +
         TiffTag(0x100, width) + TiffTag(0x101, height) + TiffTag(0x112, orientation) +
         LittleEndian(0, 4);
}

std::string Gif(std::uint32_t width, std::uint32_t height) {
  return "GIF89a" + LittleEndian(width, 2) + LittleEndian(height, 2) + std::string(3, '\0') + ";";
}

std::string Webp(std::uint32_t width, std::uint32_t height) {
  const std::string extended = "VP8X" + LittleEndian(10, 4) + LittleEndian(0, 4) +
                               LittleEndian(width - 1, 3) + LittleEndian(height - 1, 3);
  return "RIFF" + LittleEndian(static_cast<std::uint32_t>(4 + extended.size()), 4) + "WEBP" +
         extended;
}

std::string Bmp(std::uint32_t width, std::uint32_t height) {
  return "BM" + LittleEndian(54, 4) + LittleEndian(0, 4) + LittleEndian(54, 4) +
         LittleEndian(40, 4) + LittleEndian(width, 4) + LittleEndian(height, 4) +
         std::string(28, '\0');
}

class ImageHeaderTest : public ::testing::Test {
 protected:
  std::string Path(const std::string& name) const { return dir_.path() + "/" + name; }
  std::string Write(const std::string& content, const std::string& name = "photo") const {
    std::ofstream(Path(name), std::ios::binary) << content;
    return Path(name);
  }
  Header Read(const std::string& content) const { return ReadImageHeader(Write(content)); }
  // A HEIC or AVIF file, by the name's extension.
  std::string Encode(int width, int height, int orientation, const std::string& name) const {
    const std::string command = std::string(KELDO_MAKE_HEIF) + " '" + Path(name) +
                                (name.ends_with(".avif") ? "' av1 " : "' hevc ") +
                                std::to_string(width) + " " + std::to_string(height) + " " +
                                std::to_string(orientation) + " >/dev/null 2>&1";
    EXPECT_EQ(std::system(command.c_str()), 0) << command;
    return Path(name);
  }

  testing::TempDir dir_;
};

TEST_F(ImageHeaderTest, ReadsStoredSizeAndOrientationOfJpeg) {
  EXPECT_EQ(Read(JpegHeaderOf(4000, 3000)), (Header{{4000, 3000, 0}}));
  for (int orientation = 1; orientation <= 8; ++orientation) {
    EXPECT_EQ(Read(JpegHeaderOf(4000, 3000, orientation)), (Header{{4000, 3000, orientation}}));
  }
  EXPECT_EQ(Read(JpegHeaderOf(65500, 1)), (Header{{65500, 1, 0}}));
}

TEST_F(ImageHeaderTest, AnOrientationThatDoesNotExistIsUnknown) {
  EXPECT_EQ(Read(JpegHeaderOf(40, 30, 9)), (Header{{40, 30, 0}}));
  EXPECT_EQ(Read(Tiff(40, 30, 65535)), (Header{{40, 30, 0}}));
}

TEST_F(ImageHeaderTest, ReadsTheStoredSizeOfOtherFormats) {
  EXPECT_EQ(Read(Png(640, 480)), (Header{{640, 480, 0}}));
  EXPECT_EQ(Read(Tiff(640, 480, 6)), (Header{{640, 480, 6}}));
  EXPECT_EQ(Read(Gif(640, 480)), (Header{{640, 480, 0}}));
  EXPECT_EQ(Read(Webp(640, 480)), (Header{{640, 480, 0}}));
  EXPECT_EQ(Read(Bmp(640, 480)), (Header{{640, 480, 0}}));
  EXPECT_EQ(Read(Bmp(640, static_cast<std::uint32_t>(-480))), (Header{{640, 480, 0}}));
  EXPECT_EQ(Read("P6\n# dcraw\n640 480\n255\n"), (Header{{640, 480, 0}}));
  EXPECT_EQ(Read("P5 640 480 65535 "), (Header{{640, 480, 0}}));
}

TEST_F(ImageHeaderTest, RejectsImpossibleSizes) {
  EXPECT_EQ(Read(Png(0, 480)), std::nullopt);
  EXPECT_EQ(Read(Png(640, 0)), std::nullopt);
  EXPECT_EQ(Read(Png(0x7FFFFFFF, 1)), std::nullopt);
  EXPECT_EQ(Read(Tiff(0xFFFFFFFF, 0xFFFFFFFF, 1)), std::nullopt);
  EXPECT_EQ(Read("P6\n0 480\n255\n"), std::nullopt);
  EXPECT_EQ(Read("P6\n10000001 1\n255\n"), std::nullopt);
  EXPECT_EQ(Read("P6\n10000000 1\n255\n"), (Header{{10000000, 1, 0}}));
  EXPECT_EQ(Read(Bmp(640, 0x80000000)), std::nullopt);
}

TEST_F(ImageHeaderTest, OtherAndDamagedFilesGiveNothing) {
  EXPECT_EQ(Read(""), std::nullopt);
  EXPECT_EQ(Read("just text"), std::nullopt);
  EXPECT_EQ(Read("\xFF\xD8"), std::nullopt);
  EXPECT_EQ(Read(JpegHeaderOf(40, 30).substr(0, 10)), std::nullopt);
  EXPECT_EQ(Read(Tiff(40, 30, 1).substr(0, 12)), std::nullopt);
  EXPECT_EQ(Read(Png(40, 30).substr(0, 20)), std::nullopt);
  EXPECT_EQ(Read(std::string("\0\0\0\x18"
                             "ftypheic\0\0\0\0heicmif1",
                             24)),
            std::nullopt);
  EXPECT_EQ(Read(std::string("\0\0\0\x18"
                             "ftypisom\0\0\0\0isommp42",
                             24)),
            std::nullopt);
}

// Damages one byte of a header after the other. Whatever the result, nothing is thrown or printed.
TEST_F(ImageHeaderTest, DamageNeitherThrowsNorPrints) {
  ::testing::internal::CaptureStderr();
  ::testing::internal::CaptureStdout();
  for (const std::string& image :
       {JpegHeaderOf(40, 30, 6), Png(40, 30), Tiff(40, 30, 6), Webp(40, 30)}) {
    // A sample of the hundreds of bytes in the tables of a JPEG header.
    for (std::size_t i = 0; i < image.size(); i += image.size() / 150 + 1) {
      std::string damaged = image;
      damaged[i] = static_cast<char>(~damaged[i]);
      const Header header = Read(damaged);
      EXPECT_TRUE(!header || (header->width > 0 && header->height > 0));
    }
  }
  EXPECT_EQ(::testing::internal::GetCapturedStdout(), "");
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
}

TEST_F(ImageHeaderTest, OpensRegularFilesOnly) {
  EXPECT_EQ(ReadImageHeader(Path("none")), std::nullopt);
  EXPECT_EQ(ReadImageHeader(dir_.path()), std::nullopt);
  EXPECT_EQ(ReadImageHeader("/dev/zero"), std::nullopt);
  ASSERT_EQ(mkfifo(Path("fifo.jpg").c_str(), 0600), 0);
  EXPECT_EQ(ReadImageHeader(Path("fifo.jpg")), std::nullopt);  // and does not wait for a writer
}

TEST_F(ImageHeaderTest, IgnoresTheName) {
  const std::string jpeg = JpegHeaderOf(40, 30);
  for (const char* name : {"a.png", "a.heic", "-x %[1]*\n'\xFF.jpg", "none"}) {
    EXPECT_EQ(ReadImageHeader(Write(jpeg, name)), (Header{{40, 30, 0}})) << name;
  }
  // Relative names that a library could mistake for an address or for data.
  const auto before = std::filesystem::current_path();
  std::filesystem::current_path(dir_.path());
  std::filesystem::create_directories("http:/127.0.0.1");
  Write(jpeg, "http:/127.0.0.1/a.jpg");
  Write(jpeg, "data:,x");
  EXPECT_EQ(ReadImageHeader("http://127.0.0.1/a.jpg"), (Header{{40, 30, 0}}));
  EXPECT_EQ(ReadImageHeader("data:,x"), (Header{{40, 30, 0}}));
  std::filesystem::current_path(before);
}

TEST_F(ImageHeaderTest, ReadsTheDisplayedSizeOfHeicAndAvif) {
  for (const char* name : {"IMG_1.heic", "IMG_1.avif"}) {
    EXPECT_EQ(ReadImageHeader(Encode(96, 64, 1, name)), (Header{{96, 64, 1}})) << name;
    EXPECT_EQ(ReadImageHeader(Encode(96, 64, 3, name)), (Header{{96, 64, 1}})) << name;
    EXPECT_EQ(ReadImageHeader(Encode(96, 64, 6, name)), (Header{{64, 96, 1}})) << name;
  }
  // By the content, not by the name.
  std::filesystem::rename(Path("IMG_1.heic"), Path("photo.jpg"));
  EXPECT_EQ(ReadImageHeader(Path("photo.jpg")), (Header{{64, 96, 1}}));
}

// The libraries behind HEIC would cost more at every start of the program than everything else. The
// check runs in a process of its own, since another test may have loaded them in this one.
TEST_F(ImageHeaderTest, LoadsTheHeicLibraryOnlyForAFileThatNeedsIt) {
  const std::string heic = Encode(96, 64, 1, "a.heic");
  const std::string jpeg = Write(JpegHeaderOf(40, 30));
  const auto is_loaded = [] {
    return ::dlopen("libheif.so.1", RTLD_NOLOAD | RTLD_LAZY) != nullptr;
  };
  ::testing::FLAGS_gtest_death_test_style = "threadsafe";
  EXPECT_EXIT(
      {
        if (is_loaded()) std::_Exit(1);
        if (!ReadImageHeader(jpeg) || is_loaded()) std::_Exit(2);
        if (!ReadImageHeader(heic) || !is_loaded()) std::_Exit(3);
        std::_Exit(0);
      },
      ::testing::ExitedWithCode(0), "");
}

TEST_F(ImageHeaderTest, ResolutionIsTheSizeInTheHeader) {
  unsigned width = 7;
  unsigned height = 8;
  EXPECT_FALSE(keldoindexutils::KELDOIndexImgResGet(Write("no image"), width, height));
  EXPECT_EQ(width, 7U);
  EXPECT_EQ(height, 8U);
  EXPECT_TRUE(
      keldoindexutils::KELDOIndexImgResGet(Write(JpegHeaderOf(4000, 3000, 6)), width, height));
  EXPECT_EQ(width, 4000U);
  EXPECT_EQ(height, 3000U);
}

TEST_F(ImageHeaderTest, AMediaRecordHasPathSizeAndOrientation) {
  const std::string path = Write(JpegHeaderOf(4000, 3000, 6));
  keldoindexutils::MediaInfo info;
  info.frame_bitrate(5);
  EXPECT_EQ(keldoindexutils::ipc::KELDOIDX_GetMediaInfo(path.c_str(), info), 0);
  EXPECT_EQ(info.path(), path);
  EXPECT_EQ(info.resolution_x(), 4000);
  EXPECT_EQ(info.resolution_y(), 3000);
  EXPECT_EQ(info.photo_rotation(), 6);
  EXPECT_EQ(info.frame_bitrate(), 5);

  EXPECT_EQ(keldoindexutils::ipc::KELDOIDX_GetMediaInfo(Write("no image").c_str(), info), -1);
  EXPECT_EQ(keldoindexutils::ipc::KELDOIDX_GetMediaInfo(Path("none").c_str(), info), -1);
  EXPECT_EQ(info.resolution_x(), 4000);
}

}  // namespace
}  // namespace keldo::media
