#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <string>

#include "platform/process.h"
#include "process/process_test_support.h"
#include "support/temp_dir.h"

namespace {

using keldo::testing::ReadFile;
using keldo::testing::TempDir;
using keldo::testing::WriteFile;

class PidFileTest : public testing::Test {
 protected:
  [[nodiscard]] const std::string& path() const { return path_; }
  [[nodiscard]] const std::string& directory() const { return dir_.path(); }
  [[nodiscard]] static std::string Content() { return std::to_string(getpid()) + "\n"; }

 private:
  TempDir dir_;
  std::string path_ = dir_.path() + "/keldothumb.pid";
};

TEST_F(PidFileTest, HoldsOurIdAndANewline) {
  EXPECT_EQ(KLIBCProcPidFileCreate(path().c_str()), 0);
  EXPECT_EQ(ReadFile(path()), Content());
}

TEST_F(PidFileTest, IsReadableByAllWhateverTheUmask) {
  for (const mode_t mask : {0000U, 0077U}) {
    const mode_t before = umask(mask);
    EXPECT_EQ(KLIBCProcPidFileCreate(path().c_str()), 0);
    umask(before);
    struct stat status {};
    ASSERT_EQ(stat(path().c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777U, 0644U);
  }
}

TEST_F(PidFileTest, ReplacesWhatAnEarlierRunLeft) {
  WriteFile(path(), "4194304 and much more than a process id\n");
  EXPECT_EQ(KLIBCProcPidFileCreate(path().c_str()), 0);
  EXPECT_EQ(ReadFile(path()), Content());
}

TEST_F(PidFileTest, NeverWritesThroughALink) {
  const std::string target = directory() + "/target";
  WriteFile(target, "precious");
  std::filesystem::create_symlink(target, path());
  EXPECT_EQ(KLIBCProcPidFileCreate(path().c_str()), 0);
  EXPECT_EQ(ReadFile(target), "precious");
  EXPECT_TRUE(std::filesystem::is_regular_file(std::filesystem::symlink_status(path())));
  EXPECT_EQ(ReadFile(path()), Content());
}

TEST_F(PidFileTest, NeverWritesThroughAHardLink) {
  const std::string target = directory() + "/target";
  WriteFile(target, "precious");
  std::filesystem::create_hard_link(target, path());
  EXPECT_EQ(KLIBCProcPidFileCreate(path().c_str()), 0);
  EXPECT_EQ(ReadFile(target), "precious");
}

TEST_F(PidFileTest, ReportsWhenItCannotBeMade) {
  EXPECT_EQ(KLIBCProcPidFileCreate((directory() + "/missing/keldothumb.pid").c_str()), -1);
  EXPECT_EQ(errno, ENOENT);
  // Root cannot do this either.
  EXPECT_EQ(KLIBCProcPidFileCreate("/proc/keldothumb.pid"), -1);
  std::filesystem::create_directory(path());
  EXPECT_EQ(KLIBCProcPidFileCreate(path().c_str()), -1);
  EXPECT_TRUE(std::filesystem::is_directory(path()));
}

TEST_F(PidFileTest, LeavesNoDescriptorOpen) {
  const auto before = keldo::testing::CountDescriptors();
  EXPECT_EQ(KLIBCProcPidFileCreate(path().c_str()), 0);
  EXPECT_EQ(KLIBCProcPidFileCreate("/proc/keldothumb.pid"), -1);
  EXPECT_EQ(keldo::testing::CountDescriptors(), before);
}

}  // namespace
