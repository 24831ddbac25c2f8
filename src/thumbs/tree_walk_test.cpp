#include "thumbs/tree_walk.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <filesystem>
#include <string>
#include <vector>

#include "fakes/core_test.h"

namespace keldo {
namespace {

using ::testing::ElementsAre;

class TreeWalkTest : public testing::CoreTest {
 protected:
  using Texts = std::vector<std::string>;

  // The directories of a walk, without the sandbox's path in front.
  Texts Walk(const std::string& root) {
    Texts visited;
    problems_.clear();
    WalkDirectories(root, {[&](const std::string& path) { visited.push_back(Short(path)); },
                           [&](const std::string& path, int error) {
                             problems_.push_back(Short(path) + " " + std::to_string(error));
                           }});
    return visited;
  }
  Texts problems_;

 private:
  [[nodiscard]] std::string Short(const std::string& path) const {
    return path.substr(In("").size());
  }
};

TEST_F(TreeWalkTest, ParentsComeFirstAndSiblingsInByteOrder) {
  for (const char* name : {"v/b/x", "v/a/y", "v/a/Z", "v/\xFF\n%[1]*", "v/-x"})
    std::filesystem::create_directories(In(name));
  WriteFile(In("v/photo.jpg"), "x");
  EXPECT_THAT(Walk(In("v")),
              ElementsAre("v", "v/-x", "v/a", "v/a/Z", "v/a/y", "v/b", "v/b/x", "v/\xFF\n%[1]*"));
  EXPECT_THAT(problems_, ElementsAre());
}

TEST_F(TreeWalkTest, TheFilterHoldsBelowTheRootOnly) {
  for (const char* name : {"@tmp/a/b", "@tmp/@eaDir/a.jpg", "@tmp/#recycle", "@tmp/Foo.app/c",
                           "@tmp/._x", "@tmp/a/#snapshot"})
    std::filesystem::create_directories(In(name));
  EXPECT_THAT(Walk(In("@tmp")), ElementsAre("@tmp", "@tmp/a", "@tmp/a/b"));
}

TEST_F(TreeWalkTest, LinksAreFollowedAndEachDirectoryIsVisitedOnce) {
  std::filesystem::create_directories(In("v/a/below"));
  std::filesystem::create_directories(In("elsewhere/x"));
  std::filesystem::create_directory_symlink(In("v"), In("v/a/up"));
  std::filesystem::create_directory_symlink("self", In("v/self"));
  std::filesystem::create_directory_symlink(In("elsewhere"), In("v/link"));
  std::filesystem::create_directory_symlink(In("elsewhere"), In("v/second"));
  std::filesystem::create_symlink(In("none"), In("v/dangling"));
  EXPECT_THAT(Walk(In("v")), ElementsAre("v", "v/a", "v/a/below", "v/link", "v/link/x"));
}

TEST_F(TreeWalkTest, OtherFileSystemsAreLeftOut) {
  std::filesystem::create_directory(In("v"));
  std::filesystem::create_directory_symlink("/proc/self", In("v/process"));
  EXPECT_THAT(Walk(In("v")), ElementsAre("v"));
}

TEST_F(TreeWalkTest, UnreadableDirectoriesAreReported) {
  std::filesystem::create_directories(In("v/a"));
  std::filesystem::create_directories(In("v/b"));
  testing::fake().FailCall("opendir", 2, EACCES);
  EXPECT_THAT(Walk(In("v")), ElementsAre("v", "v/b"));
  EXPECT_THAT(problems_, ElementsAre("v/a " + std::to_string(EACCES)));
  EXPECT_THAT(Walk(In("none")), ElementsAre());
  EXPECT_THAT(problems_, ElementsAre("none " + std::to_string(ENOENT)));
}

TEST_F(TreeWalkTest, ASlashAtTheEndIsNotDoubled) {
  std::filesystem::create_directories(In("v/a"));
  EXPECT_THAT(Walk(In("v/")), ElementsAre("v/", "v/a"));
}

}  // namespace
}  // namespace keldo
