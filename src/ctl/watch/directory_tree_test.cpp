#include "ctl/watch/directory_tree.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <set>
#include <string>

#include "ctl/watch/tree_test_support.h"
#include "util/handles.h"

namespace keldo::ctl {
namespace {

using Names = std::set<std::string>;

TEST_F(DirectoryTreeTest, FindsWhatAWalkVisits) {
  for (const char* name : {"a/b", "@eaDir/a.jpg", "#recycle/x", "Tool.app/c", "._d", "z"})
    MakeDirs(name);
  Write("a/photo.jpg");
  Begin();
  EXPECT_EQ(Directories(), (Names{"", "a", "a/b", "z"}));
  EXPECT_EQ(tree_.watched(), 4U);
  EXPECT_EQ(tree_.unwatched(), 0U);
  EXPECT_TRUE(listener_.fresh.empty());
}

TEST_F(DirectoryTreeTest, ReportsPhotosThatAreWritten) {
  MakeDirs("a");
  Begin();
  Write("top.jpg");
  Write("a/deep.NEF");
  Write("a/notes.txt");
  Write("a/._ghost.jpg");
  Settle();
  EXPECT_EQ(Photos(), (Names{"top.jpg", "a/deep.NEF"}));
}

TEST_F(DirectoryTreeTest, APhotoIsReportedWhenItIsClosed) {
  Begin();
  UniqueFd fd(open(At("slow.jpg").c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0644));
  ASSERT_EQ(write(fd.get(), "x", 1), 1);
  Settle();
  EXPECT_EQ(Photos(), Names{});
  fd.reset();
  Settle();
  EXPECT_EQ(Photos(), Names{"slow.jpg"});
}

TEST_F(DirectoryTreeTest, ReportsPhotosThatAreMovedOrLinkedOrTouched) {
  Write("old.jpg");
  Write("upload.tmp");
  Begin();
  ASSERT_EQ(chmod(At("old.jpg").c_str(), 0600), 0);
  Settle();
  EXPECT_EQ(Photos(), Names{"old.jpg"});
  Clear();
  Move("upload.tmp", "new.jpg");
  ASSERT_EQ(link(At("new.jpg").c_str(), At("hard.jpg").c_str()), 0);
  ASSERT_EQ(symlink("new.jpg", At("soft.jpg").c_str()), 0);
  Settle();
  EXPECT_EQ(Photos(), (Names{"new.jpg", "hard.jpg", "soft.jpg"}));
}

TEST_F(DirectoryTreeTest, IgnoresPhotosThatAreRemoved) {
  Write("a.jpg");
  Write("b.jpg");
  Begin();
  Remove("a.jpg");
  Move("b.jpg", "b.txt");
  Settle();
  EXPECT_EQ(Photos(), Names{});
}

TEST_F(DirectoryTreeTest, IgnoresTheMetadataDirectory) {
  Begin();
  Clear();
  MakeDirs("@eaDir/a.jpg");
  Write("@eaDir/a.jpg/KELDOPHOTO_THUMB_XL.jpg");
  Settle();
  EXPECT_EQ(Photos(), Names{});
  EXPECT_EQ(Directories(), Names{});
  EXPECT_EQ(tree_.watched(), 1U);
}

TEST_F(DirectoryTreeTest, WatchesNewDirectories) {
  Begin();
  Clear();
  MakeDirs("new");
  Settle();
  EXPECT_EQ(Below(listener_.fresh), Names{"new"});
  EXPECT_TRUE(IsWatched("new"));
}

// The directories are created and filled before the first event is read, so their content is found
// by visiting them, and no photo is missed.
TEST_F(DirectoryTreeTest, FindsEverythingInATreeCreatedAtOnce) {
  Begin();
  Clear();
  MakeDirs("1/2/3/4/5");
  Write("1/2/3/4/5/photo.jpg");
  Settle();
  EXPECT_EQ(Below(listener_.fresh), (Names{"1", "1/2", "1/2/3", "1/2/3/4", "1/2/3/4/5"}));
  EXPECT_TRUE(IsWatched("1/2/3/4/5"));
}

TEST_F(DirectoryTreeTest, MissesNothingWhileVisitingATree) {
  Begin();
  Clear();
  MakeDirs("1");
  tree_.ReadEvents();
  ASSERT_TRUE(tree_.HasWork());
  tree_.Work(Clock::now());  // "1" is watched and read.
  MakeDirs("1/2/3");
  Write("1/2/3/photo.jpg");
  Settle();
  EXPECT_EQ(Below(listener_.fresh), (Names{"1", "1/2", "1/2/3"}));
}

TEST_F(DirectoryTreeTest, MissesNothingCreatedRightBeforeTheWatch) {
  Begin();
  inotify_.before_add = [this](const std::string& directory) {
    if (directory == At("new")) MakeDirs("new/late");
  };
  MakeDirs("new");
  Settle();
  EXPECT_TRUE(IsWatched("new/late"));
}

TEST_F(DirectoryTreeTest, ForgetsRemovedDirectories) {
  MakeDirs("a/b/c");
  Begin();
  Remove("a");
  Settle();
  EXPECT_EQ(Gone(), (Names{"a", "a/b", "a/b/c"}));
  EXPECT_EQ(tree_.watched(), 1U);
  MakeDirs("a");
  Settle();
  EXPECT_TRUE(IsWatched("a"));
}

TEST_F(DirectoryTreeTest, FollowsRenamedDirectories) {
  MakeDirs("old/sub");
  MakeDirs("oldest");
  Begin();
  Clear();
  Move("old", "new");
  Settle();
  EXPECT_EQ(Gone(), (Names{"old", "old/sub"}));
  EXPECT_EQ(Below(listener_.fresh), (Names{"new", "new/sub"}));
  EXPECT_EQ(tree_.watched(), 4U);
  EXPECT_TRUE(IsWatched("new/sub"));
}

TEST_F(DirectoryTreeTest, FollowsADirectoryIntoANewOne) {
  MakeDirs("a/sub");
  Begin();
  Clear();
  MakeDirs("box");
  Move("a", "box/a");
  Settle();
  EXPECT_EQ(tree_.watched(), 4U);
  EXPECT_TRUE(IsWatched("box/a/sub"));
}

TEST_F(DirectoryTreeTest, FollowsDirectoriesThatSwapNames) {
  MakeDirs("a/in-a");
  MakeDirs("b/in-b");
  Begin();
  Move("a", "tmp");
  Move("b", "a");
  Move("tmp", "b");
  Settle();
  EXPECT_EQ(tree_.watched(), 5U);
  EXPECT_TRUE(IsWatched("a/in-b"));
  EXPECT_TRUE(IsWatched("b/in-a"));
}

TEST_F(DirectoryTreeTest, ForgetsWhatIsMovedOutAndFindsWhatIsMovedIn) {
  MakeDirs("a/b");
  Begin();
  const std::string outside = temp_.path() + "/outside";
  std::filesystem::rename(At("a"), outside);
  Settle();
  EXPECT_EQ(Gone(), (Names{"a", "a/b"}));
  EXPECT_EQ(tree_.watched(), 1U);
  Clear();
  std::filesystem::rename(outside, At("back"));
  Settle();
  EXPECT_EQ(Below(listener_.fresh), (Names{"back", "back/b"}));
  EXPECT_TRUE(IsWatched("back/b"));
}

TEST_F(DirectoryTreeTest, WatchesADirectoryThatWasReplaced) {
  MakeDirs("a/old");
  Begin();
  Clear();
  for (int i = 0; i < 20; ++i) {
    Remove("a");
    MakeDirs("a/new");
    if (i % 3 == 0) Settle();
  }
  Settle();
  EXPECT_EQ(tree_.watched(), 3U);
  EXPECT_TRUE(IsWatched("a"));
  EXPECT_TRUE(IsWatched("a/new"));
}

TEST_F(DirectoryTreeTest, DoesNotWatchDirectoriesWithRefusedNames) {
  MakeDirs("photos");
  Begin();
  Move("photos", "@eaDir");
  Settle();
  EXPECT_EQ(Gone(), Names{"photos"});
  Move("@eaDir", "photos");
  Settle();
  EXPECT_TRUE(IsWatched("photos"));
}

TEST_F(DirectoryTreeTest, FollowsLinksToDirectoriesOnce) {
  MakeDirs("real/sub");
  ASSERT_EQ(symlink("real", At("zlink").c_str()), 0);
  ASSERT_EQ(symlink("..", At("real/circle").c_str()), 0);
  Begin();
  EXPECT_EQ(Directories(), (Names{"", "real", "real/sub"}));
  Remove("real");
  Settle();
  EXPECT_EQ(tree_.watched(), 1U);
}

TEST_F(DirectoryTreeTest, FollowsLinksThatComeAndGo) {
  const std::string outside = temp_.path() + "/outside";
  std::filesystem::create_directories(outside + "/sub");
  Begin();
  Clear();
  ASSERT_EQ(symlink(outside.c_str(), At("link").c_str()), 0);
  Settle();
  EXPECT_EQ(Below(listener_.fresh), (Names{"link", "link/sub"}));
  EXPECT_TRUE(IsWatched("link/sub"));
  Clear();
  std::filesystem::remove(At("link"));
  Settle();
  EXPECT_EQ(Gone(), (Names{"link", "link/sub"}));
  EXPECT_EQ(tree_.watched(), 1U);
}

// "album" is a link to "real" and visited first, so its path is the one that is known.
TEST_F(DirectoryTreeTest, KeepsTheWatchWhenALinkIsRemoved) {
  MakeDirs("real/sub");
  ASSERT_EQ(symlink("real", At("album").c_str()), 0);
  Begin();
  EXPECT_EQ(Directories(), (Names{"", "album", "album/sub"}));
  std::filesystem::remove(At("album"));
  Settle();
  EXPECT_EQ(tree_.watched(), 3U);
  EXPECT_TRUE(IsWatched("real/sub"));
}

TEST_F(DirectoryTreeTest, AcceptsNamesOfAnyBytes) {
  const Names names{"new\nline", "sp ace", "%s", "[a]*", "-rf", "@home", "\xFF\xFE", "quo'te\""};
  Begin();
  Clear();
  for (const std::string& name : names)
    MakeDirs(name);
  Settle();
  EXPECT_EQ(Below(listener_.fresh), names);
  for (const std::string& name : names)
    EXPECT_TRUE(IsWatched(name)) << name;
}

TEST_F(DirectoryTreeTest, KeepsNothingOfRemovedDirectories) {
  Begin();
  for (int i = 0; i < 300; ++i) {
    const std::string name = "d" + std::to_string(i);
    MakeDirs(name + "/sub");
    Settle();
    Remove(name);
    Settle();
  }
  EXPECT_EQ(tree_.watched(), 1U);
  EXPECT_EQ(tree_.unwatched(), 0U);
  EXPECT_FALSE(tree_.HasWork());
  EXPECT_EQ(inotify_.watches.size(), 1U);
}

}  // namespace
}  // namespace keldo::ctl
