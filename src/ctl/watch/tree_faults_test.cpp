// Trees when watches run out, events get lost and roots disappear.
#include <gmock/gmock.h>
#include <sys/inotify.h>

#include <cerrno>
#include <cstring>
#include <set>
#include <string>
#include <vector>

#include "ctl/watch/directory_tree.h"
#include "ctl/watch/tree_test_support.h"

namespace keldo::ctl {
namespace {

using Names = std::set<std::string>;

// An event in the format of the kernel.
std::string RawEvent(int watch, std::uint32_t mask, const std::string& name = {}) {
  inotify_event event{};
  event.wd = watch;
  event.mask = mask;
  event.len = name.empty() ? 0 : static_cast<std::uint32_t>(name.size() / 16 + 1) * 16;
  std::string raw(sizeof event, '\0');
  std::memcpy(raw.data(), &event, sizeof event);
  return raw + name + std::string(event.len - name.size(), '\0');
}

TEST_F(DirectoryTreeTest, ReportsAShortageOfWatchesOnce) {
  MakeDirs("a/deep");
  MakeDirs("b");
  inotify_.most = 2;
  inotify_.error = ENOSPC;
  Begin();
  EXPECT_EQ(listener_.shortages, std::vector<int>{ENOSPC});
  EXPECT_EQ(Directories(), (Names{"", "a", "a/deep", "b"})) << "what is unwatched is found as well";
  EXPECT_EQ(tree_.watched(), 2U);
  EXPECT_EQ(tree_.unwatched(), 2U);
}

TEST_F(DirectoryTreeTest, RevisitsUnwatchedDirectories) {
  MakeDirs("a/deep");
  MakeDirs("b");
  inotify_.most = 2;
  inotify_.error = ENOSPC;
  Begin();
  MakeDirs("b/new");
  Clear();
  tree_.LookAtUnwatched();
  Settle();
  EXPECT_EQ(Directories(), (Names{"a/deep", "b", "b/new"}));
  EXPECT_TRUE(listener_.shortages.empty());
  EXPECT_TRUE(listener_.gone.empty()) << "what is known of them must not be lost";
}

TEST_F(DirectoryTreeTest, UsesWatchesThatBecomeFree) {
  MakeDirs("a/deep");
  inotify_.most = 1;
  inotify_.error = ENOSPC;
  Begin();
  inotify_.most = 10;
  tree_.LookAtUnwatched();
  Settle();
  EXPECT_EQ(tree_.unwatched(), 0U);
  EXPECT_TRUE(IsWatched("a/deep"));
  Clear();
  tree_.LookAtUnwatched();
  Settle();
  EXPECT_TRUE(listener_.directories.empty());
}

TEST_F(DirectoryTreeTest, ForgetsRemovedUnwatchedDirectories) {
  MakeDirs("a/deep");
  inotify_.most = 1;
  inotify_.error = ENOMEM;
  Begin();
  Remove("a");
  tree_.LookAtUnwatched();
  Settle();
  EXPECT_EQ(Gone(), (Names{"a", "a/deep"}));
  EXPECT_EQ(tree_.unwatched(), 0U);
}

TEST_F(DirectoryTreeTest, SurvivesCircularLinksWithoutWatches) {
  MakeDirs("a");
  ASSERT_EQ(symlink("..", At("a/up").c_str()), 0);
  ASSERT_EQ(symlink(".", At("a/here").c_str()), 0);
  inotify_.most = 0;
  inotify_.error = EMFILE;
  Begin();
  EXPECT_EQ(Directories(), (Names{"", "a"}));
}

TEST_F(DirectoryTreeTest, ReportsThatTheKernelDroppedEvents) {
  Begin();
  tree_.HandleEvents(RawEvent(-1, IN_Q_OVERFLOW));
  EXPECT_EQ(listener_.overflows, 1);
}

TEST_F(DirectoryTreeTest, AFullVisitFindsUnreportedChanges) {
  for (const char* name : {"keep/sub", "gone/sub", "moved/sub"})
    MakeDirs(name);
  Begin();
  Clear();
  Remove("gone");
  Move("moved", "elsewhere");
  MakeDirs("new/sub");
  while (!inotify_.Read().empty()) {
    // These are the reports that get lost.
  }
  tree_.LookAtAll();
  Settle();
  EXPECT_EQ(Gone(), (Names{"gone", "gone/sub", "moved", "moved/sub"}));
  EXPECT_EQ(Directories(),
            (Names{"", "keep", "keep/sub", "elsewhere", "elsewhere/sub", "new", "new/sub"}));
  for (const char* name : {"", "keep/sub", "elsewhere", "elsewhere/sub", "new/sub"})
    EXPECT_TRUE(IsWatched(name)) << name;
  EXPECT_EQ(tree_.watched(), 7U);
}

TEST_F(DirectoryTreeTest, ReportsWhenARootIsGoneAndBack) {
  MakeDirs("a");
  Begin();
  Remove("");
  Settle();
  EXPECT_EQ(listener_.roots_gone, std::vector<std::string>{root_});
  tree_.LookAtUnwatched();
  Settle();
  EXPECT_EQ(listener_.roots_gone.size(), 1U);
  MakeDirs("b");
  Clear();
  tree_.LookAtUnwatched();
  Settle();
  EXPECT_EQ(listener_.roots_back, std::vector<std::string>{root_});
  EXPECT_TRUE(IsWatched("b"));
}

TEST_F(DirectoryTreeTest, NoticesARootThatIsMovedAway) {
  Begin();
  std::filesystem::rename(root_, temp_.path() + "/other");
  Settle();
  EXPECT_EQ(listener_.roots_gone, std::vector<std::string>{root_});
  EXPECT_EQ(tree_.watched(), 0U);
}

TEST_F(DirectoryTreeTest, AnUnmountedRootIsGoneEvenIfItsMountPointExists) {
  MakeDirs("a");
  Begin();
  const int watch = inotify_.watch_of.at(root_);
  tree_.HandleEvents(RawEvent(watch, IN_UNMOUNT) + RawEvent(watch, IN_IGNORED));
  Settle();
  EXPECT_EQ(listener_.roots_gone, std::vector<std::string>{root_});
  EXPECT_EQ(tree_.watched(), 0U);
  tree_.LookAtUnwatched();
  Settle();
  EXPECT_TRUE(listener_.roots_back.empty()) << "the bare mount point is not the root";
}

TEST_F(DirectoryTreeTest, ARootMayHaveAnyNameAndBeInsideAnother) {
  MakeDirs("Tool.app/in");
  tree_.AddRoot(At("Tool.app"));
  Begin();
  EXPECT_EQ(Directories(), (Names{"", "Tool.app", "Tool.app/in"}));
  Remove("Tool.app");
  Settle();
  EXPECT_EQ(listener_.roots_gone, std::vector<std::string>{At("Tool.app")});
}

TEST_F(DirectoryTreeTest, SkipsEventsOfUnknownWatches) {
  Begin();
  Clear();
  tree_.HandleEvents(RawEvent(4711, IN_CLOSE_WRITE, "a.jpg") +
                     RawEvent(inotify_.watch_of.at(root_), IN_CLOSE_WRITE, "b.jpg"));
  EXPECT_EQ(Photos(), Names{"b.jpg"});
}

TEST(InotifyTest, WatchesNothingWithoutAnInstance) {
  // Using up the limit of the user would take watches from other tests.
  errno = EMFILE;
  Inotify inotify(-1);
  EXPECT_EQ(inotify.fd(), -1);
  errno = 0;
  EXPECT_EQ(inotify.Add("/"), -1);
  EXPECT_EQ(errno, EMFILE);
  EXPECT_TRUE(inotify.Read().empty());
}

TEST(InotifyTest, SaysWhichLimitIsReachedAndHowToRaiseIt) {
  EXPECT_THAT(ShortageText(ENOSPC),
              ::testing::AllOf(::testing::HasSubstr("/proc/sys/fs/inotify/max_user_watches is "),
                               ::testing::HasSubstr("sysctl fs.inotify.max_user_watches=")));
  EXPECT_THAT(ShortageText(EMFILE), ::testing::HasSubstr("sysctl fs.inotify.max_user_instances="));
}

}  // namespace
}  // namespace keldo::ctl
