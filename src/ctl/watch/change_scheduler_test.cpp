#include "ctl/watch/change_scheduler.h"

#include <gtest/gtest.h>

#include <chrono>
#include <optional>
#include <set>
#include <string>

namespace keldo::ctl {
namespace {

using namespace std::chrono_literals;
using Duration = SchedulerTimes::Duration;

constexpr const char* kTrip = "/photos/trip";
constexpr const char* kHome = "/photos/home";

class ChangeSchedulerTest : public ::testing::Test {
 protected:
  // The directory that is due `at` after the start of the test; empty for none.
  std::string NextAt(Duration at) {
    const auto turn = scheduler_.Next(start_ + at);
    if (!turn) return {};
    photos_ = turn->photos;
    is_idle_work_ = turn->is_idle_work;
    return turn->directory;
  }
  void ChangedAt(Duration at, const std::string& directory, const std::string& photo = "a.jpg") {
    scheduler_.Changed(directory, photo, start_ + at);
  }
  void LookAt(Duration at, const std::string& directory) {
    scheduler_.Look(directory, start_ + at);
  }
  void EndedAt(Duration at, const std::string& directory, TurnEnd end = TurnEnd::kComplete) {
    scheduler_.Ended(directory, end, start_ + at);
  }
  std::optional<Duration> NextDue() const {
    const auto due = scheduler_.NextDue();
    return due ? std::optional<Duration>(*due - start_) : std::nullopt;
  }

  Clock::time_point start_ = Clock::time_point(1000h);
  ChangeScheduler scheduler_{SchedulerTimes::FromQuietPeriod(5s), 2};
  std::set<std::string> photos_;
  bool is_idle_work_ = false;
};

TEST_F(ChangeSchedulerTest, IsEmptyAtFirst) {
  EXPECT_EQ(NextAt(0s), "");
  EXPECT_EQ(NextDue(), std::nullopt);
  EXPECT_EQ(scheduler_.size(), 0U);
}

TEST_F(ChangeSchedulerTest, WaitsForTheQuietPeriod) {
  ChangedAt(1s, kTrip);
  EXPECT_EQ(NextDue(), 6s);
  EXPECT_EQ(NextAt(6s - 1ns), "");
  EXPECT_EQ(NextAt(6s), kTrip);
  EXPECT_FALSE(is_idle_work_);
}

TEST_F(ChangeSchedulerTest, EachChangeRestartsTheQuietPeriod) {
  ChangedAt(0s, kTrip, "a.jpg");
  ChangedAt(4s, kTrip, "b.jpg");
  ChangedAt(8s, kTrip, "a.jpg");
  EXPECT_EQ(NextAt(13s - 1ns), "");
  EXPECT_EQ(NextAt(13s), kTrip);
  EXPECT_EQ(photos_, (std::set<std::string>{"a.jpg", "b.jpg"}));
}

TEST_F(ChangeSchedulerTest, AnEndlessUploadIsDueAfterTwelveQuietPeriods) {
  for (auto at = 0s; at < 60s; at += 3s)
    ChangedAt(at, kTrip);
  EXPECT_EQ(NextAt(60s - 1ns), "");
  EXPECT_EQ(NextDue(), 60s);
  EXPECT_EQ(NextAt(60s), kTrip);
}

TEST_F(ChangeSchedulerTest, DirectoriesWaitIndependently) {
  ChangedAt(0s, kTrip);
  ChangedAt(3s, kHome);
  EXPECT_EQ(NextAt(7s), kTrip);
  EXPECT_EQ(NextAt(7s), "");
  EXPECT_EQ(NextDue(), 8s);
  EXPECT_EQ(NextAt(8s), kHome);
}

TEST_F(ChangeSchedulerTest, LimitsTheTurnsAtATime) {
  for (const char* directory : {"/a", "/b", "/c"})
    LookAt(0s, directory);
  EXPECT_EQ(NextAt(0s), "/a");
  EXPECT_EQ(NextAt(0s), "/b");
  EXPECT_EQ(NextAt(100s), "");
  EXPECT_EQ(NextDue(), std::nullopt) << "nothing can be begun before a turn ends";
  EndedAt(100s, "/b");
  EXPECT_EQ(NextAt(100s), "/c");
}

TEST_F(ChangeSchedulerTest, OneTurnAtATimePerDirectory) {
  ChangedAt(0s, kTrip);
  EXPECT_EQ(NextAt(5s), kTrip);
  ChangedAt(6s, kTrip, "late.jpg");
  EXPECT_EQ(NextAt(50s), "");
  EXPECT_EQ(NextDue(), std::nullopt);
  EndedAt(50s, kTrip);
  EXPECT_EQ(NextAt(50s), kTrip);
  EXPECT_EQ(photos_, std::set<std::string>{"late.jpg"});
}

TEST_F(ChangeSchedulerTest, AChangeNearTheEndOfATurnWaitsForItsOwnQuietPeriod) {
  ChangedAt(0s, kTrip);
  EXPECT_EQ(NextAt(5s), kTrip);
  ChangedAt(9s, kTrip);
  EndedAt(10s, kTrip);
  EXPECT_EQ(NextAt(14s - 1ns), "");
  EXPECT_EQ(NextAt(14s), kTrip);
}

TEST_F(ChangeSchedulerTest, AVisitNeedsNoQuietPeriod) {
  LookAt(2s, kTrip);
  EXPECT_EQ(NextDue(), 2s);
  EXPECT_EQ(NextAt(2s), kTrip);
  EXPECT_TRUE(photos_.empty());
}

TEST_F(ChangeSchedulerTest, AChangeBeforeADueVisitKeepsItsQuietPeriod) {
  LookAt(0s, kTrip);
  ChangedAt(1000s, kTrip);
  EXPECT_EQ(NextAt(1004s), "");
  EXPECT_EQ(NextAt(1005s), kTrip);
}

TEST_F(ChangeSchedulerTest, AVisitDoesNotCutAQuietPeriodShort) {
  ChangedAt(0s, kTrip);
  LookAt(1s, kTrip);
  EXPECT_EQ(NextAt(4s), "");
  EXPECT_EQ(NextAt(5s), kTrip);
}

TEST_F(ChangeSchedulerTest, IdleWorkIsDueWhenNothingElseIs) {
  LookAt(0s, kTrip);
  LookAt(0s, kHome);
  EXPECT_EQ(NextAt(0s), kHome);
  EXPECT_EQ(NextAt(0s), kTrip);
  EndedAt(1s, kHome, TurnEnd::kMoreLater);
  EXPECT_EQ(NextAt(2s), "") << "the other one has its turn";
  EndedAt(3s, kTrip);
  EXPECT_EQ(NextDue(), 1s);
  EXPECT_EQ(NextAt(3s), kHome);
  EXPECT_TRUE(is_idle_work_);
}

TEST_F(ChangeSchedulerTest, IdleWorkMayRunInParallel) {
  LookAt(0s, kTrip);
  LookAt(0s, kHome);
  ASSERT_EQ(NextAt(0s), kHome);
  ASSERT_EQ(NextAt(0s), kTrip);
  EndedAt(1s, kTrip, TurnEnd::kMoreLater);
  EndedAt(2s, kHome, TurnEnd::kMoreLater);
  EXPECT_EQ(NextAt(2s), kTrip);
  EXPECT_EQ(NextAt(2s), kHome);
  EXPECT_TRUE(is_idle_work_);
}

TEST_F(ChangeSchedulerTest, AWaitingChangeDelaysIdleWork) {
  LookAt(0s, kTrip);
  ASSERT_EQ(NextAt(0s), kTrip);
  ChangedAt(0s, kHome);
  EndedAt(1s, kTrip, TurnEnd::kMoreLater);
  EXPECT_EQ(NextAt(4s), "");
  EXPECT_EQ(NextDue(), 5s);
  EXPECT_EQ(NextAt(5s), kHome);
}

TEST_F(ChangeSchedulerTest, IdleWorkDoesNotWaitForever) {
  LookAt(0s, kTrip);
  ASSERT_EQ(NextAt(0s), kTrip);
  EndedAt(0s, kTrip, TurnEnd::kMoreLater);
  ChangedAt(599s, kHome);
  EXPECT_EQ(NextAt(600s - 1ns), "");
  EXPECT_EQ(NextDue(), 600s);
  EXPECT_EQ(NextAt(600s), kTrip);
}

TEST_F(ChangeSchedulerTest, ATurnForAChangeIncludesTheIdleWork) {
  LookAt(0s, kTrip);
  ASSERT_EQ(NextAt(0s), kTrip);
  EndedAt(0s, kTrip, TurnEnd::kMoreLater);
  ChangedAt(0s, kTrip);
  EXPECT_EQ(NextAt(5s), kTrip);
  EXPECT_FALSE(is_idle_work_);
  EndedAt(6s, kTrip);
  EXPECT_EQ(NextAt(10000s), "");
  EXPECT_EQ(scheduler_.size(), 0U);
}

TEST_F(ChangeSchedulerTest, RetriesALockedDirectoryLater) {
  LookAt(0s, kTrip);
  ASSERT_EQ(NextAt(0s), kTrip);
  EndedAt(1s, kTrip, TurnEnd::kLocked);
  EXPECT_EQ(NextDue(), 31s);
  EXPECT_EQ(NextAt(31s - 1ns), "");
  EXPECT_EQ(NextAt(31s), kTrip);
}

TEST_F(ChangeSchedulerTest, AChangeDoesNotShortenThePauseOfALockedDirectory) {
  LookAt(0s, kTrip);
  ASSERT_EQ(NextAt(0s), kTrip);
  EndedAt(1s, kTrip, TurnEnd::kLocked);
  ChangedAt(2s, kTrip);
  EXPECT_EQ(NextAt(31s - 1ns), "");
  EXPECT_EQ(NextAt(31s), kTrip);
  EndedAt(31s, kTrip);
  EXPECT_EQ(scheduler_.size(), 0U);
}

TEST_F(ChangeSchedulerTest, ALockedDirectoryDoesNotDelayIdleWork) {
  LookAt(0s, kTrip);
  LookAt(0s, kHome);
  ASSERT_EQ(NextAt(0s), kHome);
  ASSERT_EQ(NextAt(0s), kTrip);
  EndedAt(1s, kTrip, TurnEnd::kLocked);
  EndedAt(1s, kHome, TurnEnd::kMoreLater);
  EXPECT_EQ(NextAt(1s), kHome);
}

TEST_F(ChangeSchedulerTest, AFruitlessDirectoryWaitsForTheRescan) {
  LookAt(0s, kTrip);
  ASSERT_EQ(NextAt(0s), kTrip);
  EndedAt(1s, kTrip, TurnEnd::kFruitless);
  EXPECT_EQ(NextAt(10000s), "");
  EXPECT_EQ(NextDue(), std::nullopt);
  scheduler_.LookAtFruitless(start_ + 10000s);
  EXPECT_EQ(NextAt(10000s), kTrip);
  EndedAt(10001s, kTrip);
  scheduler_.LookAtFruitless(start_ + 20000s);
  EXPECT_EQ(NextAt(20000s), "");
}

TEST_F(ChangeSchedulerTest, AFruitlessDirectoryIsDueAfterAChange) {
  LookAt(0s, kTrip);
  ASSERT_EQ(NextAt(0s), kTrip);
  EndedAt(1s, kTrip, TurnEnd::kFruitless);
  ChangedAt(2s, kTrip);
  EXPECT_EQ(NextAt(7s), kTrip);
}

TEST_F(ChangeSchedulerTest, ForgetsARemovedDirectory) {
  ChangedAt(0s, kTrip);
  scheduler_.Forget(kTrip);
  EXPECT_EQ(NextAt(100s), "");
  EXPECT_EQ(scheduler_.size(), 0U);
}

TEST_F(ChangeSchedulerTest, ForgetsADirectoryRemovedDuringItsTurn) {
  for (const TurnEnd end :
       {TurnEnd::kComplete, TurnEnd::kMoreLater, TurnEnd::kLocked, TurnEnd::kFruitless}) {
    LookAt(0s, kTrip);
    ASSERT_EQ(NextAt(0s), kTrip);
    ChangedAt(1s, kTrip);
    scheduler_.Forget(kTrip);
    EndedAt(2s, kTrip, end);
    EXPECT_EQ(NextAt(100000s), "");
    EXPECT_EQ(scheduler_.size(), 0U);
  }
}

TEST_F(ChangeSchedulerTest, ADirectoryThatComesBackDuringItsTurnIsDueAgain) {
  LookAt(0s, kTrip);
  ASSERT_EQ(NextAt(0s), kTrip);
  scheduler_.Forget(kTrip);
  ChangedAt(1s, kTrip);
  EXPECT_EQ(NextAt(6s), "");
  EndedAt(7s, kTrip);
  EXPECT_EQ(NextAt(7s), kTrip);
}

TEST_F(ChangeSchedulerTest, KeepsNothingOfFinishedDirectories) {
  for (int i = 0; i < 1000; ++i) {
    const std::string directory = "/photos/" + std::to_string(i);
    ChangedAt(0s, directory);
  }
  for (int i = 0; i < 1000; ++i) {
    const std::string directory = NextAt(5s);
    ASSERT_NE(directory, "");
    EndedAt(5s, directory, i % 2 == 0 ? TurnEnd::kComplete : TurnEnd::kMoreLater);
  }
  for (int i = 0; i < 500; ++i)
    EndedAt(6s, NextAt(6s));
  EXPECT_EQ(NextAt(100000s), "");
  EXPECT_EQ(scheduler_.size(), 0U);
}

TEST(SchedulerTimesTest, AQuietPeriodOfZeroDoesNotBusyLoop) {
  const SchedulerTimes times = SchedulerTimes::FromQuietPeriod(0s);
  EXPECT_EQ(times.quiet, 0s);
  EXPECT_GE(times.lock_pause, 1s);
  EXPECT_GE(times.idle_patience, 60s);
}

}  // namespace
}  // namespace keldo::ctl
