#include "platform/text.h"

#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <string>

namespace {

using keldoindexutils::GetFileExtension;
using keldoindexutils::StartWith;
using KELDOUtils::GetPathDirName;
using KELDOUtils::GetPathExt;

std::string Trimmed(std::string text) {
  EXPECT_EQ(StringTrim(text.data()), text.data());
  text.resize(std::strlen(text.data()));
  return text;
}

TEST(StringTrim, RemovesWhiteSpaceAtBothEndsInPlace) {
  EXPECT_EQ(Trimmed(" \t\r\n\v\f4000 x 3000 \n"), "4000 x 3000");
  EXPECT_EQ(Trimmed("plain"), "plain");
  EXPECT_EQ(Trimmed("left "), "left");
  EXPECT_EQ(Trimmed(" right"), "right");
}

TEST(StringTrim, NothingButWhiteSpaceLeavesNothing) {
  EXPECT_EQ(Trimmed(" \n "), "");
  EXPECT_EQ(Trimmed(""), "");
}

TEST(StringTrim, KeepsBytesAboveAscii) {
  EXPECT_EQ(Trimmed(" \xA0\xFF "), "\xA0\xFF");  // 0xA0 is a blank in some encodings
}

TEST(StringTrim, NullStaysNull) {
  EXPECT_EQ(StringTrim(nullptr), nullptr);
}

std::string Escaped(const char* in, std::size_t size) {
  std::array<char, 64> out{};
  out.fill('#');
  const std::size_t length = EscapePercentSign(in, out.data(), size);
  EXPECT_EQ(out.at(length), '\0');
  EXPECT_EQ(out.at(size), '#') << "wrote past the buffer";
  return out.data();
}

TEST(EscapePercentSign, DoublesEveryPercentSign) {
  EXPECT_EQ(Escaped("/v/100%/%d", 63), "/v/100%%/%%d");
  EXPECT_EQ(Escaped("/v/photo", 63), "/v/photo");
  EXPECT_EQ(Escaped("%%", 63), "%%%%");
  EXPECT_EQ(Escaped("", 63), "");
}

TEST(EscapePercentSign, CutsBetweenPairsOnly) {
  EXPECT_EQ(Escaped("ab%", 5), "ab%%");
  EXPECT_EQ(Escaped("ab%", 4), "ab");
  EXPECT_EQ(Escaped("ab%c", 3), "ab");
  EXPECT_EQ(Escaped("%", 1), "");
}

TEST(EscapePercentSign, LeavesABufferOfNoBytesAlone) {
  char out = '#';
  EXPECT_EQ(EscapePercentSign("a", &out, 0), 0U);
  EXPECT_EQ(out, '#');
}

TEST(GetPathDirName, IsTheDirectoryPart) {
  EXPECT_EQ(GetPathDirName("/a/b.jpg"), "/a");
  EXPECT_EQ(GetPathDirName("/a"), "/");
  EXPECT_EQ(GetPathDirName("a"), ".");
  EXPECT_EQ(GetPathDirName("a/b/c"), "a/b");
  EXPECT_EQ(GetPathDirName("a//b"), "a");
  EXPECT_EQ(GetPathDirName("//a"), "/");
  EXPECT_EQ(GetPathDirName("/a/b/"), "/a");
  EXPECT_EQ(GetPathDirName("/"), "/");
  EXPECT_EQ(GetPathDirName(""), ".");
}

// The two differ in their callers only.
TEST(Extension, IsWhatFollowsTheLastDotAsWritten) {
  for (const auto extension : {GetPathExt, GetFileExtension}) {
    EXPECT_EQ(extension("/a/b.jpg"), "jpg");
    EXPECT_EQ(extension("IMG.Heic"), "Heic");
    EXPECT_EQ(extension("a.tar.gz"), "gz");
    EXPECT_EQ(extension("/v/@eaDir/a.jpg/KELDOPHOTO:THUMB_S.jpg"), "jpg");
    EXPECT_EQ(extension("a..jpg"), "jpg");
    EXPECT_EQ(extension("\xFF\n.j\xE9g"), "j\xE9g");
  }
}

TEST(Extension, IsEmptyWithoutADotThatEndsAName) {
  for (const auto extension : {GetPathExt, GetFileExtension}) {
    EXPECT_EQ(extension("photo"), "");
    EXPECT_EQ(extension(".jpg"), "");
    EXPECT_EQ(extension("/v/.jpg"), "");
    EXPECT_EQ(extension("/v.app/photo"), "");
    EXPECT_EQ(extension("photo."), "");
    EXPECT_EQ(extension("a.jpg/"), "");
    EXPECT_EQ(extension(""), "");
  }
}

TEST(StartWith, ComparesThePrefixByteForByte) {
  EXPECT_TRUE(StartWith("._a", "._"));
  EXPECT_TRUE(StartWith("thumb", "thumb"));
  EXPECT_TRUE(StartWith("thumb", ""));
  EXPECT_FALSE(StartWith("Thumb", "thumb"));
  EXPECT_FALSE(StartWith("thum", "thumb"));
}

}  // namespace
