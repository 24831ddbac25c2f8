#include "platform/file_types.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using keldoindexutils::DoesJpeg;
using keldoindexutils::DoesMultiplePagePhotoFile;
using keldoindexutils::DoesPhotoOnWebConvertFile;
using keldoindexutils::DoesRawImage;
using keldoindexutils::DoesVideoOnWebFile;

TEST(FileTypes, RecognisesPhotosByNameOrPathInAnyCase) {
  for (const char* path : {"a.jpg", "/v/photo/A.JPG", "a.jpeg", "a.Png", "a.gif", "a.bmp", "a.tif",
                           "a.TIFF", "a.webp", "IMG.Heic", "a.avif", "a.ppm", "a.psd"}) {
    EXPECT_TRUE(DoesPhotoOnWebConvertFile(path)) << path;
  }
}

TEST(FileTypes, CameraRawFilesArePhotos) {
  for (const char* path : {"a.NEF", "a.cr2", "a.CR3", "a.arw", "a.dng", "a.X3F", "a.raf", "a.rw2",
                           "a.orf", "a.pef", "a.srw", "a.kdc", "a.crw"}) {
    EXPECT_TRUE(DoesPhotoOnWebConvertFile(path)) << path;
  }
}

TEST(FileTypes, OtherFilesAreNotPhotos) {
  for (const char* path : {"a.txt", "a.mp4", "jpg", ".jpg", "a.jpg/", "a.jpg.part", "a.", "",
                           "/v/b.jpg/notes", "a.jp"}) {
    EXPECT_FALSE(DoesPhotoOnWebConvertFile(path)) << path;
  }
}

TEST(FileTypes, RecognisesRawByTheExtensionWithoutADot) {
  for (const char* extension : {"nef", "NEF", "x3f", "X3F", "cr2", "dng", "3fr"}) {
    EXPECT_TRUE(DoesRawImage(extension)) << extension;
  }
  for (const char* extension : {"jpg", "tif", "heic", "", ".nef", "ne", "neff"}) {
    EXPECT_FALSE(DoesRawImage(extension)) << extension;
  }
}

TEST(FileTypes, JpegHasThreeExtensions) {
  for (const char* extension : {"jpg", "jpeg", "jpe", "JPG", "Jpeg", "jPE"}) {
    EXPECT_TRUE(DoesJpeg(extension)) << extension;
  }
  for (const char* extension : {"jfif", "jp2", "png", "", ".jpg", "jpgg"}) {
    EXPECT_FALSE(DoesJpeg(extension)) << extension;
  }
}

TEST(FileTypes, RecognisesFormatsWithSeveralPagesOrFrames) {
  for (const char* path :
       {"a.gif", "/v/a.TIF", "a.tiff", "a.heic", "a.HEIF", "a.avif", "a.webp", "a.psd"}) {
    EXPECT_TRUE(DoesMultiplePagePhotoFile(path)) << path;
  }
  for (const char* path : {"a.jpg", "a.png", "a.bmp", "a.ppm", "a.nef", "gif", ""}) {
    EXPECT_FALSE(DoesMultiplePagePhotoFile(path)) << path;
  }
}

TEST(FileTypes, VideosAreNotPhotosAndPhotosAreNotVideos) {
  for (const char* path : {"a.mp4", "/v/A.MOV", "a.avi", "a.mkv", "a.mts", "a.m2ts", "a.3gp",
                           "a.wmv", "a.webm", "a.mpg", "a.vob", "a.flv"}) {
    EXPECT_TRUE(DoesVideoOnWebFile(path)) << path;
    EXPECT_FALSE(DoesPhotoOnWebConvertFile(path)) << path;
  }
  for (const char* path : {"a.jpg", "a.nef", "a.mp3", "mp4", ".mp4", ""}) {
    EXPECT_FALSE(DoesVideoOnWebFile(path)) << path;
  }
}

TEST(FileTypes, NamesAreBytes) {
  EXPECT_TRUE(DoesPhotoOnWebConvertFile("-\xFF [1]\n%.jpg"));
  EXPECT_FALSE(DoesPhotoOnWebConvertFile("a.jp\xC7"));
}

}  // namespace
