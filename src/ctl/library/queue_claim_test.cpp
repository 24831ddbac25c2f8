#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <functional>
#include <set>
#include <string>
#include <vector>

#include "ctl/library/command_test_support.h"
#include "ctl/library/work_queue_file.h"
#include "support/temp_dir.h"

namespace keldo::ctl {
namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;
using Lines = std::vector<std::string>;

const std::string kOdd("/v/-x %s [1]*\xFF\"");

class QueueClaimTest : public ::testing::Test {
 protected:
  [[nodiscard]] Lines Waiting() const { return *ReadQueue(paths_.waiting); }
  [[nodiscard]] Lines InWork() const { return *ReadQueue(paths_.in_work); }

  // Runs `work` in a process that ends without any clean-up.
  static void InAProcessThatIsKilled(const std::function<bool()>& work) {
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) _exit(work() ? 0 : 1);
    int status = -1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
  }

  testing::TempDir dir_;
  QueuePaths paths_{dir_.path() + "/queue", dir_.path() + "/queue.tmp", dir_.path() + "/lock"};
};

TEST_F(QueueClaimTest, EntriesMoveFromOneFileToTheOther) {
  WriteFile(paths_.waiting, "/v/a\n" + kOdd + "\n/v/a\n/v/b");
  QueueClaim work(paths_);
  ASSERT_TRUE(work.Lock());
  ASSERT_TRUE(work.Claim());
  EXPECT_THAT(work.entries(), ElementsAre("/v/a", kOdd, "/v/b"));
  EXPECT_THAT(InWork(), ElementsAre("/v/a", kOdd, "/v/b"));
  EXPECT_THAT(Waiting(), ElementsAre());

  ASSERT_TRUE(work.Finish({kOdd}));
  EXPECT_THAT(work.entries(), ElementsAre("/v/a", "/v/b"));
  EXPECT_THAT(InWork(), ElementsAre("/v/a", "/v/b"));

  WriteFile(paths_.waiting, "/v/new\n/v/b\n");
  ASSERT_TRUE(work.Return());
  EXPECT_THAT(Waiting(), ElementsAre("/v/a", "/v/b", "/v/new"));
  EXPECT_FALSE(fs::exists(paths_.in_work));
}

TEST_F(QueueClaimTest, MissingFilesAreEmptyQueues) {
  QueueClaim work(paths_);
  ASSERT_TRUE(work.Lock());
  ASSERT_TRUE(work.Claim());
  EXPECT_TRUE(work.entries().empty());
  ASSERT_TRUE(work.Return());
  EXPECT_FALSE(fs::exists(paths_.in_work));
  EXPECT_FALSE(fs::exists(paths_.waiting));
}

TEST_F(QueueClaimTest, ClaimsWhatAKilledRunLeft) {
  WriteFile(paths_.waiting, "/v/a\n/v/b\n/v/c\n");
  InAProcessThatIsKilled([this] {
    QueueClaim work(paths_);
    return work.Lock() && work.Claim() && work.Finish({"/v/b"});
  });
  EXPECT_THAT(InWork(), ElementsAre("/v/a", "/v/c"));
  WriteFile(paths_.waiting, "/v/d\n/v/c\n");
  QueueClaim work(paths_);
  ASSERT_TRUE(work.Lock());
  ASSERT_TRUE(work.Claim());
  EXPECT_THAT(work.entries(), ElementsAre("/v/a", "/v/c", "/v/d"));
  EXPECT_THAT(InWork(), ElementsAre("/v/a", "/v/c", "/v/d"));
}

TEST_F(QueueClaimTest, AllowsOneRunAtATime) {
  WriteFile(paths_.waiting, "/v/a\n");
  QueueClaim first(paths_);
  ASSERT_TRUE(first.Lock());
  QueueClaim second(paths_);
  EXPECT_FALSE(second.Lock());
  EXPECT_TRUE(second.is_busy());
}

// Each step fails at a file that cannot be written. No entry may be missing from both files.
TEST_F(QueueClaimTest, AnEntryIsAlwaysInOneOfTheFiles) {
  WriteFile(paths_.waiting, "/v/a\n");
  fs::create_directory(paths_.in_work);  // cannot be written: nothing may leave the queue
  QueueClaim work(paths_);
  ASSERT_TRUE(work.Lock());
  EXPECT_FALSE(work.Claim());
  EXPECT_EQ(work.problem_path(), paths_.in_work);
  EXPECT_THAT(Waiting(), ElementsAre("/v/a"));

  fs::remove(paths_.in_work);
  ASSERT_TRUE(work.Claim());
  fs::remove(paths_.waiting);
  fs::create_directory(paths_.waiting);  // cannot be written: nothing may leave what is in work
  EXPECT_FALSE(work.Return());
  EXPECT_EQ(work.problem_path(), paths_.waiting);
  EXPECT_THAT(InWork(), ElementsAre("/v/a"));
}

TEST_F(QueueClaimTest, KeepsWhatAnotherProgramHasInWork) {
  WriteFile(paths_.waiting, "/v/a\n");
  QueueClaim work(paths_);
  ASSERT_TRUE(work.Lock());
  ASSERT_TRUE(work.Claim());
  WriteFile(paths_.in_work, "/v/a\n/v/others\n");
  ASSERT_TRUE(work.Return());
  EXPECT_THAT(Waiting(), ElementsAre("/v/a"));
  EXPECT_THAT(InWork(), ElementsAre("/v/others"));
}

// A process that keeps moving entries back and forth is killed at a random moment. All entries must
// still be there.
TEST_F(QueueClaimTest, LosesNothingWhenKilledAtAnyMoment) {
  WriteFile(paths_.waiting, "/v/a\n/v/b\n/v/c\n");
  for (int round = 0; round < 40; ++round) {
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
      while (true) {
        QueueClaim work(paths_);
        if (!work.Lock() || !work.Claim() || !work.Return()) _exit(1);
      }
    }
    for (int i = 0; i < 50 * (round % 8); ++i)
      static_cast<void>(fs::exists(paths_.in_work));
    ASSERT_EQ(kill(child, SIGKILL), 0);
    int status = -1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFSIGNALED(status));
    std::set<std::string> all;
    for (const Lines& lines : {Waiting(), InWork()})
      all.insert(lines.begin(), lines.end());
    ASSERT_THAT(all, ElementsAre("/v/a", "/v/b", "/v/c")) << round;
  }
}

}  // namespace
}  // namespace keldo::ctl
