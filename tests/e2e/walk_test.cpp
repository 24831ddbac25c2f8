// The walk of an "R:" argument.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>

#include "e2e/fixtures.h"

namespace keldo::testing {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace fs = std::filesystem;

// Adds a photo to every directory of the tree, so that a run of the converter shows each visit.
void AddAlbum(const Sandbox& box, const std::string& directory) {
  box.Write(directory + "/p.png", "x");
}

bool Visited(const Sandbox& box, const std::string& directory) {
  return box.Exists(directory + "/@eaDir/p.png");
}

TEST(WalkTest, LeavesHiddenAndSystemDirectoriesAlone) {
  Sandbox box;
  for (const char* directory :
       {"/volume1/photo", "/volume1/photo/#recycle", "/volume1/photo/#recycle/in",
        "/volume1/photo/@eaDir/in", "/volume1/photo/@tmp", "/volume1/photo/a",
        "/volume1/photo/a/#snapshot", "/volume1/photo/._x", "/volume1/photo/_x",
        "/volume1/photo/Holiday.app", "/volume1/photo/Holiday.app/in", "/volume1/photo/Holiday.APP",
        "/volume1/photo/.hidden"}) {
    AddAlbum(box, directory);
  }
  EXPECT_EQ(box.RunOn({"R:/volume1/photo"}).exit_status, 0);
  std::vector<std::string> queued = QueuedDirectories(box);
  std::sort(queued.begin(), queued.end());
  EXPECT_THAT(queued,
              ElementsAre("/volume1/photo", "/volume1/photo/.hidden", "/volume1/photo/Holiday.APP",
                          "/volume1/photo/_x", "/volume1/photo/a"));
  EXPECT_FALSE(Visited(box, "/volume1/photo/a/#snapshot"));
  EXPECT_FALSE(Visited(box, "/volume1/photo/@eaDir/in"));
}

TEST(WalkTest, ParentsComeBeforeChildren) {
  Sandbox box;
  AddAlbum(box, "/volume1/photo");
  AddAlbum(box, "/volume1/photo/a");
  AddAlbum(box, "/volume1/photo/a/b");
  EXPECT_EQ(box.RunOn({"R:/volume1/photo"}).exit_status, 0);
  EXPECT_THAT(QueuedDirectories(box),
              ElementsAre("/volume1/photo", "/volume1/photo/a", "/volume1/photo/a/b"));
}

TEST(WalkTest, FilterAppliesToTheRootToo) {
  for (const char* name : {"#recycle", "@eaDir", "Tool.app", "._x"}) {
    Sandbox box;
    const std::string root = std::string("/volume1/") + name;
    AddAlbum(box, root);
    EXPECT_EQ(box.RunOn({"R:" + root}).exit_status, 0);
    EXPECT_FALSE(Visited(box, root)) << name;
    EXPECT_EQ(box.RunOn({root}).exit_status, 0);
    EXPECT_TRUE(Visited(box, root)) << name << " as a plain target";
  }
}

TEST(WalkTest, OtherFileSystemsInsideAreNotEntered) {
  Sandbox box;
  AddAlbum(box, "/volume1/photo");
  AddAlbum(box, "/volume1/source");
  box.MountMemory("/volume1/photo/disk", 1 << 20);
  box.MountOver("/volume1/source/p.png", "/volume1/photo/disk/p.png");
  EXPECT_EQ(box.RunOn({"R:/volume1/photo"}).exit_status, 0);
  EXPECT_TRUE(Visited(box, "/volume1/photo"));
  EXPECT_THAT(box.List(Sandbox::KeptDirectory("/volume1/photo/disk")), ElementsAre("p.png"));
}

TEST(WalkTest, LinksToDirectoriesAreFollowedWithoutLooping) {
  Sandbox box;
  AddAlbum(box, "/volume1/photo/a");
  AddAlbum(box, "/volume1/elsewhere");
  fs::create_symlink("/volume1/elsewhere", box.Outside("/volume1/photo/link"));
  fs::create_symlink("..", box.Outside("/volume1/photo/a/loop"));
  fs::create_symlink("/volume1/none", box.Outside("/volume1/photo/dangling"));
  EXPECT_EQ(box.RunOn({"R:/volume1/photo"}).exit_status, 0);
  EXPECT_TRUE(Visited(box, "/volume1/photo/a"));
  EXPECT_TRUE(Visited(box, "/volume1/elsewhere"));
  EXPECT_EQ(QueuedDirectories(box).size(), 2U);
}

TEST(WalkTest, LinkToItselfIsLogged) {
  Sandbox box;
  box.MakeDirectory(kPhotoDir);
  fs::create_symlink("itself", box.Outside("/volume1/photo/itself"));
  const RunResult run = box.RunOn({"R:/volume1/photo"});
  EXPECT_EQ(run.exit_status, 0);
  EXPECT_THAT(run.log, ElementsAre(ErrorLine("keldothumb:1256 [Error] walk of /volume1/photo ended "
                                             "early, Too many levels of symbolic links")));
}

TEST(WalkTest, FileAsRootDoesNothing) {
  Sandbox box;
  AddAlbum(box, "/volume1/photo");
  const RunResult run = box.RunOn({"R:/volume1/photo/p.png"});
  EXPECT_EQ(run.exit_status, 0);
  EXPECT_THAT(run.log, IsEmpty());
  EXPECT_FALSE(Visited(box, "/volume1/photo"));
}

TEST(WalkTest, PlainTargetIsNotRecursive) {
  Sandbox box;
  AddAlbum(box, "/volume1/photo");
  AddAlbum(box, "/volume1/photo/a");
  EXPECT_EQ(box.RunOn().exit_status, 0);
  EXPECT_TRUE(Visited(box, "/volume1/photo"));
  EXPECT_FALSE(Visited(box, "/volume1/photo/a"));
}

TEST(WalkTest, DeepTreeWithHostileNames) {
  Sandbox box;
  std::string directory = "/volume1/photo";
  for (const char* name : {"a b", "c\nd", "%d", "[1]*", "-x", "\xff\xfe"}) {
    directory += std::string("/") + name;
    AddAlbum(box, directory);
  }
  EXPECT_EQ(box.RunOn({"R:/volume1/photo"}).exit_status, 0);
  EXPECT_TRUE(Visited(box, directory));
  EXPECT_TRUE(box.Exists(directory + "/@eaDir/p.png/KELDOPHOTO_THUMB_XL.jpg"));
}

}  // namespace
}  // namespace keldo::testing
