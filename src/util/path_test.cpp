#include "util/path.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "support/temp_dir.h"

namespace keldo {
namespace {

TEST(PathKey, HasOneSpellingForEveryPath) {
  EXPECT_EQ(PathKey("/v/photo"), "/v/photo");
  EXPECT_EQ(PathKey("/v/photo/"), "/v/photo");
  EXPECT_EQ(PathKey("//v//./photo/."), "/v/photo");
  EXPECT_EQ(PathKey("/v/other/../photo"), "/v/photo");
  EXPECT_EQ(PathKey("/../v/photo"), "/v/photo");
  EXPECT_EQ(PathKey("/v/..."), "/v/...");
  EXPECT_EQ(PathKey("/"), "/");
  EXPECT_EQ(PathKey("/v/.."), "/");
  EXPECT_EQ(PathKey("/v/\xFF\n [1]%"), "/v/\xFF\n [1]%");
}

TEST(PathKey, ARelativePathIsTakenFromTheCurrentDirectory) {
  const keldo::testing::TempDir dir;
  const auto before = std::filesystem::current_path();
  std::filesystem::current_path(dir.path());
  EXPECT_EQ(PathKey("photo/"), dir.path() + "/photo");
  EXPECT_EQ(PathKey("./a.jpg"), dir.path() + "/a.jpg");
  EXPECT_EQ(PathKey("."), dir.path());
  EXPECT_EQ(PathKey(""), dir.path());
  EXPECT_EQ(PathKey(".."), std::filesystem::path(dir.path()).parent_path());
  std::filesystem::current_path(before);
}

TEST(ParentOfKey, GoesUpToTheRootAndEndsThere) {
  EXPECT_EQ(ParentOfKey("/v/photo"), "/v");
  EXPECT_EQ(ParentOfKey("/v"), "/");
  EXPECT_EQ(ParentOfKey("/"), "");
}

}  // namespace
}  // namespace keldo
