#include "ctl/library/work_queue_file.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <atomic>
#include <filesystem>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "ctl/library/command_test_support.h"
#include "platform/index_ipc.h"
#include "support/temp_dir.h"
#include "util/handles.h"

namespace keldo::ctl {
namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;
using ::testing::Optional;

const std::string kOdd("/v/-x %s [1]*\xFF\"");

class WorkQueueFile : public ::testing::Test {
 protected:
  testing::TempDir dir_;
  std::string queue_ = dir_.path() + "/queue";
};

TEST_F(WorkQueueFile, RemovesWholeLinesAndKeepsTheOrderOfTheRest) {
  WriteFile(queue_, "/v/b\n/v/a\n" + kOdd + "\n/v/a/b\n\n/v\n/v/a\n/v/c");
  EXPECT_TRUE(RemoveFromQueue(queue_, {"/v/a", kOdd, "/none"}));
  EXPECT_EQ(ReadAll(queue_), "/v/b\n/v/a/b\n\n/v\n/v/c");
  EXPECT_TRUE(RemoveFromQueue(queue_, {"/v/c"}));
  EXPECT_EQ(ReadAll(queue_), "/v/b\n/v/a/b\n\n/v\n");
  struct stat status {};
  ASSERT_EQ(stat(queue_.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777U, 0644U);
}

TEST_F(WorkQueueFile, AMissingFileIsAnEmptyQueueAndStaysMissing) {
  EXPECT_TRUE(RemoveFromQueue(queue_, {"/v/a"}));
  EXPECT_FALSE(fs::exists(queue_));
  EXPECT_THAT(ReadQueue(queue_), Optional(ElementsAre()));
}

TEST_F(WorkQueueFile, CannotReadADirectory) {
  fs::create_directory(queue_);
  EXPECT_EQ(ReadQueue(queue_), std::nullopt);
  EXPECT_EQ(errno, EISDIR);
  EXPECT_FALSE(RemoveFromQueue(queue_, {"/v/a"}));
}

TEST_F(WorkQueueFile, SkipsEmptyLines) {
  WriteFile(queue_, "\n/v/a\n\n" + kOdd);
  EXPECT_THAT(ReadQueue(queue_), Optional(ElementsAre("/v/a", kOdd)));
}

TEST_F(WorkQueueFile, ChangesAFileBehindALink) {
  WriteFile(dir_.path() + "/real", "/v/a\n/v/b\n");
  fs::create_symlink("real", queue_);
  EXPECT_TRUE(RemoveFromQueue(queue_, {"/v/a"}));
  EXPECT_TRUE(fs::is_symlink(queue_));
  EXPECT_EQ(ReadAll(dir_.path() + "/real"), "/v/b\n");
}

TEST_F(WorkQueueFile, LeavesTheFileAloneWhenNothingIsToRemove) {
  WriteFile(queue_, "/v/b\n");
  SetTime(queue_, 1000);
  EXPECT_TRUE(RemoveFromQueue(queue_, {"/v/a"}));
  EXPECT_EQ(fs::last_write_time(queue_), fs::file_time_type::clock::from_sys(
                                             std::chrono::sys_seconds(std::chrono::seconds(1000))));
}

TEST_F(WorkQueueFile, WaitsForTheLock) {
  WriteFile(queue_, "/v/a\n");
  UniqueFd other(open(queue_.c_str(), O_RDWR | O_APPEND | O_CLOEXEC));
  ASSERT_EQ(flock(other.get(), LOCK_EX), 0);
  std::atomic<bool> done = false;
  std::thread remover([&] {
    EXPECT_TRUE(RemoveFromQueue(queue_, {"/v/a"}));
    done = true;
  });
  for (int i = 0; i < 100; ++i)
    std::this_thread::yield();
  EXPECT_FALSE(done);
  EXPECT_EQ(write(other.get(), "/v/b\n", 5), 5);
  other.reset();
  remover.join();
  EXPECT_EQ(ReadAll(queue_), "/v/b\n");
}

// Lines are added and removed at the same time. None may get lost, and none may come back.
TEST_F(WorkQueueFile, ConcurrentWritersLoseNothing) {
  constexpr int kLines = 300;
  std::thread writer([&] {
    for (int i = 0; i < kLines; ++i) {
      EXPECT_TRUE(
          keldoindexutils::filesystem::WriteIndexQueue("/keep/" + std::to_string(i), queue_));
      EXPECT_TRUE(
          keldoindexutils::filesystem::WriteIndexQueue("/drop/" + std::to_string(i), queue_));
    }
  });
  std::vector<std::string> expected;
  for (int i = 0; i < kLines; ++i) {
    const std::string dropped = "/drop/" + std::to_string(i);
    for (bool seen = false; !seen;) {
      const auto lines = ReadQueue(queue_);
      ASSERT_TRUE(lines);
      seen = std::find(lines->begin(), lines->end(), dropped) != lines->end();
    }
    EXPECT_TRUE(RemoveFromQueue(queue_, {dropped}));
    expected.push_back("/keep/" + std::to_string(i));
  }
  writer.join();
  EXPECT_EQ(ReadQueue(queue_), expected);
}

// A writer that waited for the lock must not write to the file that was replaced meanwhile: the
// lines that the other writer removed would come back.
TEST_F(WorkQueueFile, ConcurrentRemovalsDoNotUndoEachOther) {
  constexpr int kLines = 300;
  std::string content;
  for (int i = 0; i < kLines; ++i)
    content += "/a/" + std::to_string(i) + "\n/b/" + std::to_string(i) + "\n";
  WriteFile(queue_, content + "/v/kept\n");
  const auto take_out = [this](const std::string& start) {
    for (int i = 0; i < kLines; ++i)
      EXPECT_TRUE(RemoveFromQueue(queue_, {start + std::to_string(i)}));
  };
  std::thread other(take_out, "/b/");
  take_out("/a/");
  other.join();
  EXPECT_THAT(ReadQueue(queue_), Optional(ElementsAre("/v/kept")));
}

TEST_F(WorkQueueFile, KeepsItsMode) {
  std::ofstream(queue_) << "/a\n/b\n";
  ASSERT_EQ(chmod(queue_.c_str(), 0666), 0);
  EXPECT_TRUE(RemoveFromQueue(queue_, {"/a"}));
  struct stat status {};
  ASSERT_EQ(stat(queue_.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0666U);
}

}  // namespace
}  // namespace keldo::ctl
