// Which files of a directory are photos, and which are skipped.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "e2e/fixtures.h"

namespace keldo::testing {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace fs = std::filesystem;

// The photos that a run processed, in order, taken from the inputs of their first phase.
std::vector<std::string> PhotosDone(const RunResult& run) {
  std::vector<std::string> names;
  for (const auto& call : Calls(run, "convert-thumb")) {
    const fs::path input = call.at(3);
    if (input.parent_path() == kPhotoDir) names.push_back(input.filename());
  }
  return names;
}

TEST(ListingTest, OnlyRegularPhotosInByteOrder) {
  Sandbox box;
  for (const char* name : {"b.png", "a.png", "Z.png", "IMG_10.PNG", "IMG_9.png", ".hidden.png",
                           "._a.png", "note.txt", "film.mp4", "png", "a.png.bak", "\xff.png"}) {
    box.AddPhoto(name, "x");
  }
  box.MakeDirectory("/volume1/photo/album.png");
  box.AddPhoto("album.png/inside.png", "x");
  const RunResult run = box.RunOn();
  EXPECT_THAT(PhotosDone(run), ElementsAre(".hidden.png", "IMG_10.PNG", "IMG_9.png", "Z.png",
                                           "a.png", "b.png", "\xff.png"));
}

TEST(ListingTest, LinksToPhotosCountAndDanglingOnesAreLogged) {
  Sandbox box;
  box.Write("/volume1/store/real.png", "x");
  fs::create_symlink("/volume1/store/real.png", box.Outside("/volume1/photo/link.png"));
  fs::create_symlink("/volume1/none.png", box.Outside("/volume1/photo/gone.png"));
  const RunResult run = box.RunOn();
  EXPECT_THAT(PhotosDone(run), ElementsAre("link.png"));
  ASSERT_FALSE(run.log.empty());
  EXPECT_EQ(run.log[0].priority, 3);
  EXPECT_THAT(run.log[0].text,
              ::testing::MatchesRegex("[a-z_]+:[0-9]+ .Error. stat: /volume1/photo/gone.png"));
}

TEST(ListingTest, DevicesAndPipesAreNotPhotos) {
  Sandbox box;
  ASSERT_EQ(::mkfifo(box.Outside("/volume1/photo/pipe.png").c_str(), 0666), 0);
  fs::create_symlink("/dev/zero", box.Outside("/volume1/photo/zero.png"));
  const RunResult run = box.RunOn();
  EXPECT_THAT(run.invocations, IsEmpty());
  EXPECT_THAT(run.log, IsEmpty());
  EXPECT_FALSE(box.Exists("/volume1/photo/@eaDir"));
}

TEST(ListingTest, NameOfMaximumLengthWorks) {
  Sandbox box;
  const std::string name = std::string(251, 'n') + ".png";
  box.AddPhoto(name, "x");
  EXPECT_THAT(PhotosDone(box.RunOn()), ElementsAre(name));
  EXPECT_TRUE(box.Exists(ThumbOf(name, "XL")));
}

}  // namespace
}  // namespace keldo::testing
