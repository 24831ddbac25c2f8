// The embedded index: which kinds it asks for where, and what a run writes to it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <memory>
#include <stdexcept>

#include "e2e/fixtures.h"

namespace keldo::testing {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr const char* kDatabase = "/var/lib/keldoindex/index.db";

// The first row of a query, as text.
std::vector<std::string> FirstRow(const Sandbox& box, const char* query) {
  sqlite3* raw = nullptr;
  const int opened = sqlite3_open(box.Outside(kDatabase).c_str(), &raw);
  const std::unique_ptr<sqlite3, decltype(&sqlite3_close)> database(raw, &sqlite3_close);
  if (opened != SQLITE_OK) throw std::runtime_error("cannot open the index");
  sqlite3_stmt* raw_statement = nullptr;
  sqlite3_prepare_v2(database.get(), query, -1, &raw_statement, nullptr);
  const std::unique_ptr<sqlite3_stmt, decltype(&sqlite3_finalize)> statement(raw_statement,
                                                                             &sqlite3_finalize);
  std::vector<std::string> row;
  if (sqlite3_step(statement.get()) != SQLITE_ROW) return row;
  for (int column = 0; column < sqlite3_column_count(statement.get()); ++column) {
    row.emplace_back(reinterpret_cast<const char*>(sqlite3_column_text(statement.get(), column)));
  }
  return row;
}

class IndexTest : public ::testing::Test {
 protected:
  IndexTest() {
    box.AddPhoto("a.jpg");
    box.StartDaemon(AnswerVersion(0));
  }

  void SetMask(const std::string& directory, const std::string& mask) {
    const RunResult run = box.Run({"keldothumbctl", "index", "mask", directory, mask});
    ASSERT_EQ(run.exit_status, 0) << run.standard_error;
  }

  // Two runs make everything that is wanted.
  std::vector<std::string> MadeInTwoRuns() {
    EXPECT_THAT(box.RunOn().log, IsEmpty());
    EXPECT_THAT(box.RunOn().log, IsEmpty());
    return box.List(MetadataOf("a.jpg"));
  }

  Sandbox box;
};

TEST_F(IndexTest, MaskOfADirectoryAboveApplies) {
  SetMask("/volume1", "17");
  EXPECT_EQ(box.RunOn().exit_status, 0);
  EXPECT_EQ(box.List(MetadataOf("a.jpg")), ThumbNames("XL"));
  EXPECT_EQ(MadeInTwoRuns(), ThumbNames("XL S"));
  EXPECT_THAT(box.RunOn().invocations, IsEmpty());
}

TEST_F(IndexTest, NearestMaskApplies) {
  SetMask("/volume1", "0");
  SetMask("/volume1/photo", "16");
  box.MakeDirectory("/volume1/photo2");
  SetMask("/volume1/photo2", "63");
  EXPECT_EQ(MadeInTwoRuns(), ThumbNames("XL"));
}

TEST_F(IndexTest, MaskOfVideosIsSeparate) {
  EXPECT_EQ(box.Run({"keldothumbctl", "index", "mask", "--video", "/volume1", "0"}).exit_status, 0);
  EXPECT_EQ(MadeInTwoRuns(), ThumbNames("XL B M L SM S"));
}

TEST_F(IndexTest, NothingIsMadeIfNothingIsWanted) {
  SetMask("/volume1/photo", "0");
  const RunResult run = box.RunOn();
  EXPECT_THAT(run.invocations, IsEmpty());
  EXPECT_THAT(run.log, IsEmpty());
  EXPECT_THAT(run.requests, ElementsAre(PostRequest("/volume1/photo/a.jpg")));
}

TEST_F(IndexTest, ThumbnailsNoLongerWantedStay) {
  ASSERT_EQ(MadeInTwoRuns(), ThumbNames("XL B M L SM S"));
  SetMask("/volume1", "S");
  EXPECT_THAT(box.RunOn().invocations, IsEmpty());
  EXPECT_EQ(box.List(MetadataOf("a.jpg")), ThumbNames("XL B M L SM S"));
}

TEST_F(IndexTest, ResolutionsAreRecorded) {
  SetMask("/volume1", "63");
  box.Script("convert-thumb", "outputs jpeg 40x30\n");
  EXPECT_EQ(box.RunOn().exit_status, 0);
  EXPECT_THAT(FirstRow(box,
                       "SELECT path, width, height, thumb_path, thumb_width, thumb_height "
                       "FROM resolutions"),
              ElementsAre("/volume1/photo/a.jpg", "64", "48", ThumbOf("a.jpg", "XL"), "40", "30"));
}

TEST_F(IndexTest, LaterPhasesRecordNothing) {
  EXPECT_EQ(box.RunOn().exit_status, 0);
  SetMask("/volume1", "63");
  EXPECT_EQ(box.RunOn().exit_status, 0);
  EXPECT_THAT(FirstRow(box, "SELECT count(*) FROM resolutions"), ElementsAre("0"));
}

TEST_F(IndexTest, MissingIndexIsNotCreated) {
  EXPECT_EQ(MadeInTwoRuns(), ThumbNames("XL B M L SM S"));
  EXPECT_FALSE(box.Exists(kDatabase));
}

TEST_F(IndexTest, BrokenIndexIsLikeAMissingOne) {
  box.Write(kDatabase, "not a database");
  EXPECT_EQ(MadeInTwoRuns(), ThumbNames("XL B M L SM S"));
  EXPECT_EQ(box.Read(kDatabase), "not a database");
}

TEST_F(IndexTest, ReadOnlyIndexStillChoosesTheKinds) {
  SetMask("/volume1", "17");
  box.MountReadOnly("/var/lib");
  EXPECT_EQ(MadeInTwoRuns(), ThumbNames("XL S"));
}

}  // namespace
}  // namespace keldo::testing
