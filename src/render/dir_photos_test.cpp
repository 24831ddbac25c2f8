#include "render/dir_photos.h"

#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <cerrno>

#include "fakes/core_test.h"

namespace keldo::testing {
namespace {

using Texts = std::vector<std::string>;
using Lines = std::vector<LogLine>;

class DirPhotosTest : public CoreTest {
 protected:
  void Make(const Texts& names) const {
    for (const std::string& name : names)
      WriteFile(In(name), "x");
  }
};

TEST_F(DirPhotosTest, AnEmptyDirectoryHoldsNone) {
  EXPECT_EQ(ListDirPhotos(Dir()), Texts{});
  ExpectNoLog();
}

TEST_F(DirPhotosTest, PhotosComeInTheOrderOfTheirBytes) {
  Make({"a.jpg", "Z.jpg", "IMG_9.jpg", "IMG_10.jpg", "a.jpg.jpg", "\xc3\xa4.png", "\xff.heic",
        "a b.nef", "-x.x3f", "a\nb.jpg", "%s[1]*.JPG"});
  EXPECT_EQ(ListDirPhotos(Dir()),
            (Texts{"%s[1]*.JPG", "-x.x3f", "IMG_10.jpg", "IMG_9.jpg", "Z.jpg", "a\nb.jpg",
                   "a b.nef", "a.jpg", "a.jpg.jpg", "\xc3\xa4.png", "\xff.heic"}));
  ExpectNoLog();
}

TEST_F(DirPhotosTest, OtherFilesAreLeftOut) {
  Make({"a.txt", "a.mp4", "jpg", ".jpg", "a.jpg.bak", "a."});
  EXPECT_EQ(ListDirPhotos(Dir()), Texts{});
}

TEST_F(DirPhotosTest, ResourceForksAreLeftOutHiddenPhotosAreNot) {
  Make({"._IMG_0001.JPG", ".IMG_0001.JPG", "_.jpg", "..IMG.jpg"});
  EXPECT_EQ(ListDirPhotos(Dir()), (Texts{"..IMG.jpg", ".IMG_0001.JPG", "_.jpg"}));
}

TEST_F(DirPhotosTest, OnlyRegularFilesCount) {
  MakeDir(In("album.jpg"));
  Make({"album.jpg/inside.jpg", "sub/deep.jpg"});
  ASSERT_EQ(mkfifo(In("pipe.jpg").c_str(), 0666), 0);
  ASSERT_EQ(symlink("album.jpg", In("link to directory.jpg").c_str()), 0);
  EXPECT_EQ(ListDirPhotos(Dir()), Texts{});
  ExpectNoLog();
}

TEST_F(DirPhotosTest, ALinkToAPhotoCounts) {
  Make({"elsewhere/original"});
  ASSERT_EQ(symlink("elsewhere/original", In("link.jpg").c_str()), 0);
  EXPECT_EQ(ListDirPhotos(Dir()), (Texts{"link.jpg"}));
}

TEST_F(DirPhotosTest, AnEntryThatCannotBeLookedUpIsLoggedAndLeftOut) {
  Make({"a.jpg", "z.jpg"});
  ASSERT_EQ(symlink("nowhere", In("dangling.jpg").c_str()), 0);
  // Not a photo by its name, so it is never looked up.
  ASSERT_EQ(symlink("nowhere", In("dangling.txt").c_str()), 0);
  EXPECT_EQ(ListDirPhotos(Dir()), (Texts{"a.jpg", "z.jpg"}));
  ExpectOneLog(LOG_ERR, "keldothumb:716 [Error] stat: " + In("dangling.jpg"));
}

TEST_F(DirPhotosTest, ADirectoryThatCannotBeOpenedIsLogged) {
  EXPECT_EQ(ListDirPhotos(In("none")), Texts{});
  ExpectOneLog(LOG_ERR, "keldothumb:703 [Error] opendir: " + In("none"));
  ClearSyslog();
  Make({"file.jpg"});
  EXPECT_EQ(ListDirPhotos(In("file.jpg")), Texts{});
  ExpectOneLog(LOG_ERR, "keldothumb:703 [Error] opendir: " + In("file.jpg"));
}

}  // namespace
}  // namespace keldo::testing
