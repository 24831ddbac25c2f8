#include <gtest/gtest.h>

#include <cerrno>

#include "platform/file.h"
#include "support/temp_dir.h"

namespace {

TEST(GetFSType, ADirectoryForTemporaryFilesIsNeitherRemoteNorAnImage) {
  const keldo::testing::TempDir dir;
  const int type = KELDOGetFSType(dir.path().c_str(), 0);
  EXPECT_GT(type, 0);
  EXPECT_NE(type, 12);
  EXPECT_EQ(KELDOFSIsRemoteFS(type), 0);
  EXPECT_EQ(KELDOFSIsImageFS(type), 0);
}

TEST(GetFSType, FailsWithErrno) {
  const keldo::testing::TempDir dir;
  errno = 0;
  EXPECT_EQ(KELDOGetFSType((dir.path() + "/none").c_str(), 0), -1);
  EXPECT_EQ(errno, ENOENT);
}

TEST(FSClasses, EveryTypeIsInOneClassAtMost) {
  EXPECT_EQ(KELDOFSIsRemoteFS(2), 1);
  EXPECT_EQ(KELDOFSIsImageFS(2), 0);
  EXPECT_EQ(KELDOFSIsRemoteFS(3), 0);
  EXPECT_EQ(KELDOFSIsImageFS(3), 1);
  for (const int type : {-1, 0, 1, 12}) {
    EXPECT_EQ(KELDOFSIsRemoteFS(type), 0) << type;
    EXPECT_EQ(KELDOFSIsImageFS(type), 0) << type;
  }
}

}  // namespace
