#include "convert/pixels/image.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

namespace keldo::convert {
namespace {

struct Refusal {
  ImageError::Kind kind;
  std::string reason;
};

Refusal RefusalOf(std::int64_t width, std::int64_t height, std::int64_t bytes) {
  const Limits limits{.side = 1000, .pixels = 500'000, .memory_bytes = 2 << 20};
  try {
    CheckLimits(limits, width, height, bytes);
  } catch (const ImageError& error) {
    return {error.kind(), error.what()};
  }
  return {ImageError::Kind::kOutput, "none"};
}

TEST(LimitsTest, AcceptsImagesThatReachALimitExactly) {
  EXPECT_EQ(RefusalOf(1000, 500, 2 << 20).reason, "none");
  EXPECT_EQ(RefusalOf(1, 1000, 0).reason, "none");
}

TEST(LimitsTest, NamesTheLimitThatIsExceeded) {
  EXPECT_EQ(RefusalOf(1001, 1, 0).reason, "1001x1 pixels exceed the limit of 1000 pixels a side");
  EXPECT_EQ(RefusalOf(1, 1001, 0).reason, "1x1001 pixels exceed the limit of 1000 pixels a side");
  EXPECT_EQ(RefusalOf(1000, 501, 0).reason, "1000x501 pixels exceed the limit of 500000 pixels");
  EXPECT_EQ(RefusalOf(10, 10, (2 << 20) + 1).reason,
            "10x10 pixels exceed the limit of 2 MiB of memory");
  EXPECT_EQ(RefusalOf(1001, 1, 0).kind, ImageError::Kind::kLimit);
}

TEST(LimitsTest, CallsAnEmptyImageCorrupt) {
  EXPECT_EQ(RefusalOf(0, 5, 0).kind, ImageError::Kind::kCorrupt);
  EXPECT_EQ(RefusalOf(5, -1, 0).reason, "the header says 5x-1 pixels");
}

TEST(LimitsTest, RefusesASideWhoseProductWouldOverflow) {
  EXPECT_EQ(RefusalOf(std::int64_t{1} << 40, std::int64_t{1} << 40, 0).kind,
            ImageError::Kind::kLimit);
}

}  // namespace
}  // namespace keldo::convert
