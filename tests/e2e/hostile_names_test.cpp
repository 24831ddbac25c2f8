// File names that a careless program would interpret as patterns, formats, options or prefixes.
// Beside each is a decoy that it would use instead.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>

#include "e2e/fixtures.h"
#include "e2e/real_sandbox.h"

namespace keldo::testing {
namespace {

using ::testing::IsEmpty;

// The hostile names and their decoys, without extensions.
const std::vector<std::string>& Names() {
  static const std::vector<std::string> names = {
      "a b",   " a",      "a'b\"c", "a\nb",  "%d",     "0",    "100%",     "100%%",
      "%s%n",  "a%03d",   "a000",   "a[1]",  "a1",     "a",    "a[0-9]",   "a0",
      "*",     "a*",      "?",      "a?",    "ab",     "-x",   "-write",   "@x",
      "@",     "~",       "~root",  "{a,b}", "b",      "a\\b", "a\\",      "a:b",
      "png:b", "xc:red",  "a;b",    "$(b)",  "`b`",    "a|b",  "a&b",      "<b>",
      "!",     "#b",      "(",      ")",     "+clone", "a=b",  "\xff\xfe", "\xc3\xa4\xc3\xb6",
      "..b",   "...",     "a.b",    "a[0]",  "[",      "]",    "a^",       "null:",
      "a\tb",  "\x01\x7f"};
  return names;
}

// 125 colours, any two of which differ by 55 in some channel.
Rgb ColourOf(std::size_t number) {
  const auto step = [](std::size_t digit) { return static_cast<std::uint8_t>(20 + 55 * digit); };
  return {step(number % 5), step(number / 5 % 5), step(number / 25 % 5)};
}

CornerColours CornersOf(std::size_t number) {
  CornerColours corners;
  corners.fill(ColourOf(number));
  return corners;
}

void ExpectColour(const Sandbox& box, const std::string& metadata, std::size_t number, int width,
                  int height) {
  ExpectThumbnails(box, metadata, {width, height, CornersOf(number), 12});
}

class HostileNamesTest : public ::testing::Test {
 protected:
  std::string Photo(std::size_t number, int width = 40, int height = 30) const {
    return EncodeJpeg(Plain(width, height, ColourOf(number)));
  }
  RealSandbox box;
};

TEST_F(HostileNamesTest, NamesAreDifferent) {
  const std::set<std::string> names(Names().begin(), Names().end());
  EXPECT_EQ(names.size(), Names().size());
  EXPECT_LT(names.size(), 125U);
}

TEST_F(HostileNamesTest, AsPhotos) {
  for (std::size_t i = 0; i < Names().size(); ++i)
    box.AddPhoto(Names()[i] + ".jpg", Photo(i));
  EXPECT_THAT(box.RunTwice(), IsEmpty());
  for (std::size_t i = 0; i < Names().size(); ++i) {
    ExpectColour(box, MetadataOf(Names()[i] + ".jpg"), i, 40, 30);
  }
  EXPECT_THAT(box.List("/"), ::testing::Each(::testing::Not(::testing::HasSubstr(".jpg"))));
}

// The converter is asked to read only the first page of these.
TEST_F(HostileNamesTest, AsPhotosOfSeveralPages) {
  for (std::size_t i = 0; i < Names().size(); ++i) {
    box.Write("/conf/p.ppm", EncodePpm(Plain(40, 30, ColourOf(i))));
    box.Tool({"/usr/bin/convert", "/conf/p.ppm", "/conf/p.tif"});
    box.AddPhoto(Names()[i] + ".tif", box.Read("/conf/p.tif"));
  }
  EXPECT_THAT(box.RunTwice(), IsEmpty());
  for (std::size_t i = 0; i < Names().size(); ++i) {
    ExpectColour(box, MetadataOf(Names()[i] + ".tif"), i, 40, 30);
  }
}

TEST_F(HostileNamesTest, AsDirectories) {
  std::vector<std::string> targets;
  for (std::size_t i = 0; i < Names().size(); ++i) {
    targets.push_back("/volume1/photo/" + Names()[i]);
    box.Write(targets.back() + "/p.jpg", Photo(i));
    box.SetTime(targets.back() + "/p.jpg", kPhotoTime);
  }
  const std::string newline = "/volume1/photo/a\nb";
  EXPECT_THAT(box.RunTwice(targets),
              ::testing::ElementsAre(
                  ErrorLine("keldothumb:1169 Failed to write [" + newline + "] to thumb queue")))
      << "a queue of lines cannot hold that one";
  for (std::size_t i = 0; i < Names().size(); ++i) {
    ExpectColour(box, targets[i] + "/@eaDir/p.jpg", i, 40, 30);
  }
}

TEST_F(HostileNamesTest, AsTargetsRelativeToTheWorkingDirectory) {
  std::string script = "cd /volume1/photo && exec /program/keldothumb /conf/profile";
  for (std::size_t i = 0; i < Names().size(); ++i) {
    const std::string photo = "/volume1/photo/" + Names()[i] + "/p.jpg";
    box.Write(photo, Photo(i));
    box.SetTime(photo, kPhotoTime);
    box.Write("/conf/name" + std::to_string(i), Names()[i]);
    script += " \"$(cat /conf/name" + std::to_string(i) + ")\"";
  }
  for (int run = 0; run < 2; ++run)
    EXPECT_EQ(box.Run({"/bin/sh", "-c", script}).exit_status, 0);
  for (std::size_t i = 0; i < Names().size(); ++i) {
    ExpectColour(box, "/volume1/photo/" + Names()[i] + "/@eaDir/p.jpg", i, 40, 30);
  }
}

TEST_F(HostileNamesTest, AsLargePhotosThroughDjpeg) {
  const std::vector<std::string> names = {"-x[1]", "%d*", "a\nb", "@\xff'\"", "x1", "0a"};
  for (std::size_t i = 0; i < names.size(); ++i) {
    box.AddPhoto(names[i] + ".jpg", Photo(i, 2560, 2560));
  }
  EXPECT_THAT(box.RunTwice(), IsEmpty());
  for (std::size_t i = 0; i < names.size(); ++i) {
    ExpectColour(box, MetadataOf(names[i] + ".jpg"), i, 2560, 2560);
  }
}

TEST_F(HostileNamesTest, InAWalk) {
  std::string directory = "/volume1/photo";
  std::size_t number = 0;
  for (const char* name : {"a b", "[1]*", "%d", "-x", "\xff\xfe", "{a,b}"}) {
    directory += std::string("/") + name;
    box.Write(directory + "/a[1]%d.jpg", Photo(number++));
    box.SetTime(directory + "/a[1]%d.jpg", kPhotoTime);
  }
  EXPECT_THAT(box.RunTwice({"R:/volume1/photo"}), IsEmpty());
  while (number-- > 0) {
    ExpectColour(box, directory + "/@eaDir/a[1]%d.jpg", number, 40, 30);
    directory.erase(directory.rfind('/'));
  }
}

}  // namespace
}  // namespace keldo::testing
