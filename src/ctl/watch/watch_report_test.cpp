#include "ctl/watch/watch_report.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace keldo::ctl {
namespace {

constexpr time_t kBefore = 1000;
constexpr time_t kRunBegan = 2000;
constexpr time_t kDuring = 2000;

PhotoState Photo(const std::string& name, std::vector<ThumbState> thumbs, time_t failed_at = 0) {
  PhotoState photo;
  photo.name = name;
  for (std::size_t i = 0; i < thumbs.size(); ++i)
    photo.thumbs.at(i) = thumbs[i];
  photo.failed_at = failed_at;
  return photo;
}

constexpr auto kPresent = ThumbState::kPresent;
constexpr auto kMissing = ThumbState::kMissing;
constexpr auto kFailed = ThumbState::kFailed;
constexpr auto kStale = ThumbState::kStale;

DirectoryState Trip(std::vector<PhotoState> photos) {
  return {"/photos/trip", std::move(photos)};
}

std::string TextAfter(const DirectoryState& before, const DirectoryState& after) {
  return TextOf(Compare(before, after));
}

TEST(WatchReportTest, CountsWhatWasMade) {
  const auto before =
      Trip({Photo("a.jpg", {kMissing, kMissing}), Photo("b.jpg", {kStale, kMissing}),
            Photo("c.jpg", {kPresent, kPresent})});
  const auto after =
      Trip({Photo("a.jpg", {kPresent, kMissing}), Photo("b.jpg", {kPresent, kMissing}),
            Photo("c.jpg", {kPresent, kPresent})});
  EXPECT_EQ(TextAfter(before, after), "/photos/trip: 2 photos made");
}

TEST(WatchReportTest, CountsPhotosThatWereCompleted) {
  const auto before = Trip({Photo("a.jpg", {kPresent, kMissing}), Photo("b.jpg", {kMissing})});
  const auto after = Trip({Photo("a.jpg", {kPresent, kPresent}), Photo("b.jpg", {kPresent})});
  EXPECT_EQ(TextAfter(before, after), "/photos/trip: 1 photo made, 1 completed");
}

TEST(WatchReportTest, CountsPhotosAddedDuringTheRun) {
  EXPECT_EQ(TextAfter(Trip({}), Trip({Photo("new.jpg", {kPresent})})),
            "/photos/trip: 1 photo made");
}

TEST(WatchReportTest, ReportsNothingWhenNothingWasMade) {
  const auto same = Trip({Photo("a.jpg", {kPresent}), Photo("b.jpg", {kFailed})});
  EXPECT_EQ(TextAfter(same, same), "");
}

TEST(WatchReportTest, NamesThePhotosThatFailed) {
  RunResult result;
  result.directory = "/photos/trip";
  result.made = 3;
  result.troubles = {{"beach.jpg", "is empty", 0, true}, {"new\nline.jpg", "is gone", 0, false}};
  EXPECT_EQ(TextOf(result),
            "/photos/trip: 3 photos made, 1 failed (beach.jpg: is empty), 1 left undone "
            "(new\\nline.jpg: is gone)");
}

TEST(WatchReportTest, NamesAFewOfMany) {
  RunResult result;
  result.directory = "/p";
  for (const char* name : {"a", "b", "c", "d", "e"})
    result.troubles.push_back({name, "is empty", 0, true});
  EXPECT_EQ(TextOf(result),
            "/p: 5 photos failed (a: is empty; b: is empty; c: is empty; and 2 more)");
}

TEST(WatchReportTest, ThumbnailsAreProgress) {
  const auto before = Trip({Photo("a.jpg", {kMissing, kMissing})});
  EXPECT_FALSE(IsProgress(before, before, kRunBegan));
  EXPECT_TRUE(IsProgress(before, Trip({Photo("a.jpg", {kPresent, kMissing})}), kRunBegan));
}

TEST(WatchReportTest, AFailureIsProgressOnce) {
  const auto before = Trip({Photo("a.jpg", {kMissing}), Photo("b.jpg", {kMissing})});
  const auto failed = Trip({Photo("a.jpg", {kFailed}, kDuring), Photo("b.jpg", {kMissing})});
  EXPECT_TRUE(IsProgress(before, failed, kRunBegan));
  EXPECT_FALSE(IsProgress(failed, failed, kRunBegan));
  const auto long_ago = Trip({Photo("a.jpg", {kFailed}, kBefore), Photo("b.jpg", {kMissing})});
  EXPECT_FALSE(IsProgress(before, long_ago, kRunBegan));
}

class TroubleMemoryTest : public ::testing::Test {
 protected:
  std::size_t NewsOf(const std::vector<Trouble>& troubles,
                     const std::set<std::string>& changed = {}) {
    return memory_.Update("/p", troubles, changed).size();
  }
  TroubleMemory memory_;
};

TEST_F(TroubleMemoryTest, ReportsEachPhotoOnce) {
  EXPECT_EQ(NewsOf({{"a", "is empty", 0, true}}), 1U);
  EXPECT_EQ(NewsOf({{"a", "is empty", 0, true}}), 0U);
  EXPECT_EQ(NewsOf({{"a", "is empty", 0, true}, {"b", "is empty", 0, true}}), 1U);
}

TEST_F(TroubleMemoryTest, ReportsAChangedPhotoAgain) {
  ASSERT_EQ(NewsOf({{"a", "is empty", 0, true}}), 1U);
  EXPECT_EQ(NewsOf({{"a", "is cut off", 0, true}}), 1U);
  EXPECT_EQ(NewsOf({{"a", "is cut off", 77, true}}), 1U);
  EXPECT_EQ(NewsOf({{"a", "is cut off", 77, true}}, {"b"}), 0U);
  EXPECT_EQ(NewsOf({{"a", "is cut off", 77, true}}, {"a"}), 1U);
}

TEST_F(TroubleMemoryTest, ForgetsPhotosThatAreComplete) {
  ASSERT_EQ(NewsOf({{"a", "is empty", 0, true}}), 1U);
  EXPECT_EQ(NewsOf({}), 0U);
  EXPECT_EQ(memory_.size(), 0U);
  EXPECT_EQ(NewsOf({{"a", "is empty", 0, true}}), 1U);
  memory_.Forget("/p");
  EXPECT_EQ(memory_.size(), 0U);
}

}  // namespace
}  // namespace keldo::ctl
