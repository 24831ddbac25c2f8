#include "ctl/library/work_in_hand.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <functional>
#include <set>
#include <string>
#include <vector>

#include "ctl/commands/care_test_support.h"
#include "ctl/commands/work_queue_file.h"
#include "support/temp_dir.h"

namespace keldo::ctl {
namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;
using Lines = std::vector<std::string>;

const std::string kOdd("/v/-x %s [1]*\xFF\"");

class WorkInHandTest : public ::testing::Test {
 protected:
  [[nodiscard]] Lines Waiting() const { return *ReadQueue(paths_.waiting); }
  [[nodiscard]] Lines InWork() const { return *ReadQueue(paths_.in_work); }

  // Runs `work` in a process that ends without any clean-up at its end.
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

TEST_F(WorkInHandTest, EntriesMoveFromOneFileToTheOther) {
  WriteFile(paths_.waiting, "/v/a\n" + kOdd + "\n/v/a\n/v/b");
  WorkInHand work(paths_);
  ASSERT_TRUE(work.KeepOthersOut());
  ASSERT_TRUE(work.Take());
  EXPECT_THAT(work.entries(), ElementsAre("/v/a", kOdd, "/v/b"));
  EXPECT_THAT(InWork(), ElementsAre("/v/a", kOdd, "/v/b"));
  EXPECT_THAT(Waiting(), ElementsAre());

  ASSERT_TRUE(work.Finish({kOdd}));
  EXPECT_THAT(work.entries(), ElementsAre("/v/a", "/v/b"));
  EXPECT_THAT(InWork(), ElementsAre("/v/a", "/v/b"));

  WriteFile(paths_.waiting, "/v/new\n/v/b\n");
  ASSERT_TRUE(work.GiveBack());
  EXPECT_THAT(Waiting(), ElementsAre("/v/a", "/v/b", "/v/new"));
  EXPECT_FALSE(fs::exists(paths_.in_work));
}

TEST_F(WorkInHandTest, MissingFilesAreEmptyQueues) {
  WorkInHand work(paths_);
  ASSERT_TRUE(work.KeepOthersOut());
  ASSERT_TRUE(work.Take());
  EXPECT_TRUE(work.entries().empty());
  ASSERT_TRUE(work.GiveBack());
  EXPECT_FALSE(fs::exists(paths_.in_work));
  EXPECT_FALSE(fs::exists(paths_.waiting));
}

TEST_F(WorkInHandTest, WhatAKilledRunLeftIsTakenUpAgain) {
  WriteFile(paths_.waiting, "/v/a\n/v/b\n/v/c\n");
  InAProcessThatIsKilled([this] {
    WorkInHand work(paths_);
    return work.KeepOthersOut() && work.Take() && work.Finish({"/v/b"});
  });
  EXPECT_THAT(InWork(), ElementsAre("/v/a", "/v/c"));
  WriteFile(paths_.waiting, "/v/d\n/v/c\n");
  WorkInHand work(paths_);
  ASSERT_TRUE(work.KeepOthersOut());
  ASSERT_TRUE(work.Take());
  EXPECT_THAT(work.entries(), ElementsAre("/v/a", "/v/c", "/v/d"));
  EXPECT_THAT(InWork(), ElementsAre("/v/a", "/v/c", "/v/d"));
}

TEST_F(WorkInHandTest, OneRunAtATime) {
  WriteFile(paths_.waiting, "/v/a\n");
  WorkInHand first(paths_);
  ASSERT_TRUE(first.KeepOthersOut());
  WorkInHand second(paths_);
  EXPECT_FALSE(second.KeepOthersOut());
  EXPECT_TRUE(second.is_busy());
}

// Each step is broken off by a file that cannot be written; no entry may be missing from both.
TEST_F(WorkInHandTest, AnEntryIsAlwaysInOneOfTheFiles) {
  WriteFile(paths_.waiting, "/v/a\n");
  fs::create_directory(paths_.in_work);  // cannot be written: nothing may leave the queue
  WorkInHand work(paths_);
  ASSERT_TRUE(work.KeepOthersOut());
  EXPECT_FALSE(work.Take());
  EXPECT_EQ(work.problem_path(), paths_.in_work);
  EXPECT_THAT(Waiting(), ElementsAre("/v/a"));

  fs::remove(paths_.in_work);
  ASSERT_TRUE(work.Take());
  fs::remove(paths_.waiting);
  fs::create_directory(paths_.waiting);  // cannot be written: nothing may leave what is in work
  EXPECT_FALSE(work.GiveBack());
  EXPECT_EQ(work.problem_path(), paths_.waiting);
  EXPECT_THAT(InWork(), ElementsAre("/v/a"));
}

TEST_F(WorkInHandTest, WhatAnotherProgramHasInWorkStays) {
  WriteFile(paths_.waiting, "/v/a\n");
  WorkInHand work(paths_);
  ASSERT_TRUE(work.KeepOthersOut());
  ASSERT_TRUE(work.Take());
  WriteFile(paths_.in_work, "/v/a\n/v/others\n");
  ASSERT_TRUE(work.GiveBack());
  EXPECT_THAT(Waiting(), ElementsAre("/v/a"));
  EXPECT_THAT(InWork(), ElementsAre("/v/others"));
}

// A process that does nothing but move entries to and fro is killed at a moment that nobody chose;
// the entries are all there afterwards.
TEST_F(WorkInHandTest, KilledAtAnyMomentNothingIsLost) {
  WriteFile(paths_.waiting, "/v/a\n/v/b\n/v/c\n");
  for (int round = 0; round < 40; ++round) {
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
      while (true) {
        WorkInHand work(paths_);
        if (!work.KeepOthersOut() || !work.Take() || !work.GiveBack()) _exit(1);
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
