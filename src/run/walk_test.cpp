#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <stdexcept>

#include "run/keldothumb.h"
#include "support/job_test.h"

namespace keldo::testing {
namespace {

class WalkTest : public JobTest {
 protected:
  void Walk(const std::string& root) const { WalkTree(root, profile_path_); }

  [[nodiscard]] static Texts ProcessedSorted() {
    Texts directories = Processed();
    std::sort(directories.begin(), directories.end());
    return directories;
  }

  const std::string root_ = MakeDir(In("v"));
};

TEST_F(WalkTest, MetadataBinsAndSnapshotsAreNotEntered) {
  for (const char* directory :
       {"#recycle/x", "@eaDir/x", "@tmp", "a/#snapshot/x", "a/#recycle", "a/@eaDir/a.jpg"}) {
    MakeDir(root_ + "/" + directory);
  }
  Walk(root_);
  EXPECT_EQ(Processed(), (Texts{root_, root_ + "/a"}));
  ExpectNoLog();
}

TEST_F(WalkTest, ApplicationBundlesAndResourceForksAreNotEntered) {
  for (const char* directory : {"Holiday.app/photos", "Holiday.APP/sub", "._x/sub", "_x", ".x",
                                "app", "#recycle.d", "..x"}) {
    MakeDir(root_ + "/" + directory);
  }
  Walk(root_);
  EXPECT_EQ(ProcessedSorted(), (Texts{root_, root_ + "/#recycle.d", root_ + "/..x", root_ + "/.x",
                                      root_ + "/Holiday.APP", root_ + "/Holiday.APP/sub",
                                      root_ + "/_x", root_ + "/app"}));
}

TEST_F(WalkTest, TheRootPassesTheFilterToo) {
  for (const char* name : {"#recycle", "@eaDir", "Foo.app", "._x"}) {
    Walk(MakeDir(In(name)));
    Walk(In(name) + "/");
  }
  EXPECT_EQ(Processed(), Texts{});
  ExpectNoLog();
}

TEST_F(WalkTest, ParentsComeFirst) {
  const std::string deep = MakeDir(root_ + "/a/b/c");
  Walk(root_);
  EXPECT_EQ(Processed(), (Texts{root_, root_ + "/a", root_ + "/a/b", deep}));
  EXPECT_EQ(fake().CallsOf({"ConfParser::loadFromFile"}),
            Texts(4, "ConfParser::loadFromFile(" + profile_path_ + ")"));
  EXPECT_EQ(fake().CallsOf({"LetTerminationIn"}).size(), 4u);
}

TEST_F(WalkTest, EveryDirectorysPhotosAreDone) {
  for (const std::string& name : {root_ + "/a.png", root_ + "/sub/b.png"}) {
    SetTime(WriteFile(name, "photo"), kPhotoTime);
  }
  Walk(root_);
  EXPECT_TRUE(Exists(root_ + "/@eaDir/a.png/KELDOPHOTO_THUMB_XL.jpg"));
  EXPECT_TRUE(Exists(root_ + "/sub/@eaDir/b.png/KELDOPHOTO_THUMB_XL.jpg"));
  EXPECT_EQ(Queue(), (Texts{root_, root_ + "/sub"}));
  // The metadata directory that the parent's job has just made holds no photos.
  EXPECT_EQ(Processed(), (Texts{root_, root_ + "/sub"}));
}

TEST_F(WalkTest, FilesAreNotTargets) {
  WriteFile(root_ + "/a.txt", "x");
  ASSERT_EQ(symlink("nowhere", (root_ + "/dangling").c_str()), 0);
  Walk(root_);
  EXPECT_EQ(Processed(), (Texts{root_}));
  Walk(root_ + "/a.txt");
  EXPECT_EQ(Processed(), (Texts{root_}));
  ExpectNoLog();
}

TEST_F(WalkTest, LinksToDirectoriesAreFollowed) {
  MakeDir(In("elsewhere/sub"));
  ASSERT_EQ(symlink(In("elsewhere").c_str(), (root_ + "/link").c_str()), 0);
  Walk(root_);
  EXPECT_EQ(Processed(), (Texts{root_, root_ + "/link", root_ + "/link/sub"}));
}

TEST_F(WalkTest, ALinkToAParentDirectoryDoesNotEndTheWalk) {
  MakeDir(root_ + "/a");
  ASSERT_EQ(symlink(root_.c_str(), (root_ + "/a/up").c_str()), 0);
  Walk(root_);
  EXPECT_EQ(Processed(), (Texts{root_, root_ + "/a"}));
  ExpectNoLog();
}

TEST_F(WalkTest, AWalkThatBreaksOffIsLogged) {
  ASSERT_EQ(symlink("loop", (root_ + "/loop").c_str()), 0);
  Walk(root_);
  ExpectOneLog(LOG_ERR, "keldothumb:1256 [Error] walk of " + root_ +
                            " ended early, Too many levels of symbolic links");
  EXPECT_EQ(Processed(), (Texts{root_}));
}

TEST_F(WalkTest, AMissingRootIsSilent) {
  Walk(In("none"));
  Walk("");
  EXPECT_EQ(Processed(), Texts{});
  ExpectNoLog();
}

TEST_F(WalkTest, ADirectoryThatFailsDoesNotEndTheWalk) {
  SetTime(WriteFile(root_ + "/a.png", "photo"), kPhotoTime);
  MakeDir(root_ + "/sub");
  fake().on_run = [](const Command& /*command*/) -> int { throw std::runtime_error("broken"); };
  Walk(root_);
  ExpectOneLog(LOG_ERR, "keldothumb:1190 [Error] giving up on " + root_ + ": broken");
  EXPECT_EQ(Processed(), (Texts{root_, root_ + "/sub"}));
}

TEST_F(WalkTest, ARejectedFileSystemDoesNotEndTheWalk) {
  MakeDir(root_ + "/sub");
  fake().fs_types[root_] = kRemoteFs;
  Walk(root_);
  EXPECT_EQ(Processed(), (Texts{root_ + "/sub"}));
}

TEST_F(WalkTest, AnyBytesOfANameWork) {
  const std::string odd = MakeDir(root_ + "/-a \"'@%[1]*\n\xff");
  Walk(root_);
  EXPECT_EQ(Processed(), (Texts{root_, odd}));
}

}  // namespace
}  // namespace keldo::testing
