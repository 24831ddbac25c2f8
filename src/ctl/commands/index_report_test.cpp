#include <gmock/gmock.h>
#include <json/value.h>
#include <stdlib.h>
#include <time.h>

#include <filesystem>
#include <memory>
#include <string>

#include "ctl/library/library_test_support.h"
#include "index/index_database.h"
#include "util/json_line.h"

namespace keldo::ctl {
namespace {

using index::IndexDatabase;
using ::testing::HasSubstr;

const std::string kOddDirectory("/v/-x %s\xFF\n");

class IndexReport : public LibraryTest {
 protected:
  std::unique_ptr<IndexDatabase> Database() {
    auto opened = IndexDatabase::OpenOrCreate(environment_.database_path);
    EXPECT_TRUE(opened.database) << opened.problem;
    return std::move(opened.database);
  }
  Json::Value Parsed(const std::string& text) {
    Json::Value value;
    EXPECT_TRUE(ParseJsonObject(text, value)) << text;
    return value;
  }
  void Fill() {
    const auto database = Database();
    ASSERT_TRUE(database->SetMask("/v", 1, 17));
    ASSERT_TRUE(database->SetMask(kOddDirectory, 2, 0));
    ASSERT_TRUE(database->SetVersion("/v/a.jpg", 3));
    ASSERT_TRUE(database->AddFinished("/v/a.jpg", 1'600'000'000));
    ASSERT_TRUE(database->SetResolution({"/v/a.jpg", 4000, 3000},
                                        {"/v/@eaDir/a.jpg/KELDOPHOTO_THUMB_XL.jpg", 1280, 960}));
    ASSERT_TRUE(database->SetMedia({.path = "/v/a.jpg",
                                    .width = 1920,
                                    .height = 1080,
                                    .orientation = 6,
                                    .bit_rate = 4'500'000,
                                    .database = 1}));
  }
};

TEST_F(IndexReport, UsesTheDefaultWithoutADatabase) {
  const std::string none = "There is no index; all kinds are wanted everywhere.\n";
  EXPECT_EQ(Run({"index", "list"}), none);
  EXPECT_EQ(Run({"index", "show", "/v/a.jpg"}),
            none +
                "/v/a.jpg\n"
                "  for photos:  63 (S, SM, M, B, L, XL), the default\n"
                "  for videos:  63 (S, SM, M, B, L, XL), the default\n");
  EXPECT_EQ(Parsed(Run({"index", "list", "--json"}))["has_index"], false);
  EXPECT_EQ(Parsed(Run({"index", "show", "--json", "/v"}))["photo"]["mask"], 63);
  EXPECT_FALSE(std::filesystem::exists(environment_.database_path));
}

TEST_F(IndexReport, ListsMasksAndCounts) {
  Database();
  EXPECT_THAT(Run({"index", "list"}), HasSubstr("No masks are set; all kinds"));
  Fill();
  EXPECT_EQ(Run({"index", "list"}),
            "photo  17  /v: S, XL\n"
            "video   0  /v/-x %s\\xff\\n: no thumbnails\n"
            "\n"
            "1  files with a resolution\n"
            "1  files with an index version\n"
            "1  files finished\n"
            "1  files with a media record\n");
}

TEST_F(IndexReport, ListsTheSameAsJson) {
  Fill();
  const Json::Value value = Parsed(Run({"index", "list", "--json"}));
  EXPECT_EQ(value["has_index"], true);
  ASSERT_EQ(value["masks"].size(), 2U);
  EXPECT_EQ(value["masks"][0]["path"], "/v");
  EXPECT_EQ(value["masks"][0]["type"], "photo");
  EXPECT_EQ(value["masks"][0]["mask"], 17);
  EXPECT_EQ(value["masks"][0]["kinds"][1], "XL");
  EXPECT_EQ(value["masks"][1]["type"], "video");
  EXPECT_TRUE(value["masks"][1].isMember("path_bytes"));
  for (const char* count : {"with_resolution", "with_version", "finished", "with_media_record"})
    EXPECT_EQ(value["files"][count], 1) << count;
}

TEST_F(IndexReport, ShowsEverythingAboutAPath) {
  ASSERT_EQ(setenv("TZ", "UTC", 1), 0);
  tzset();
  Fill();
  EXPECT_EQ(Run({"index", "show", "/v/./a.jpg"}),
            "/v/a.jpg\n"
            "  for photos:  17 (S, XL), set on /v\n"
            "  for videos:  63 (S, SM, M, B, L, XL), the default\n"
            "  version:     3\n"
            "  finished:    2020-09-13 12:26:40 +0000\n"
            "  size:        4000 x 3000\n"
            "  thumbnail:   1280 x 960, /v/@eaDir/a.jpg/KELDOPHOTO_THUMB_XL.jpg\n"
            "  media:       1920 x 1080, orientation 6, 4,500,000 bit/s, in media database 1\n");
  EXPECT_THAT(Run({"index", "show", kOddDirectory}), HasSubstr("0 (no thumbnails), set here"));
}

TEST_F(IndexReport, ShowsTheSameAsJson) {
  Fill();
  const Json::Value value = Parsed(Run({"index", "show", "--json", "/v/a.jpg"}));
  EXPECT_EQ(value["path"], "/v/a.jpg");
  EXPECT_EQ(value["photo"]["mask"], 17);
  EXPECT_EQ(value["photo"]["set_on"]["path"], "/v");
  EXPECT_TRUE(value["video"]["set_on"].isNull());
  EXPECT_EQ(value["version"], 3);
  EXPECT_EQ(value["finished"], 1'600'000'000);
  EXPECT_EQ(value["size"]["width"], 4000);
  EXPECT_EQ(value["thumbnail"]["height"], 960);
  EXPECT_EQ(value["media"][0]["bit_rate"], 4'500'000);
  EXPECT_EQ(value["media"][0]["database"], 1);
  const Json::Value unknown = Parsed(Run({"index", "show", "--json", "/v/none"}));
  for (const char* member : {"version", "finished", "size", "thumbnail"})
    EXPECT_TRUE(unknown[member].isNull()) << member;
}

TEST_F(IndexReport, FailsWithAnUnreadableDatabase) {
  Write(environment_.database_path, std::string(5000, 'x'));
  EXPECT_EQ(Status({"index", "list"}), 1);
  EXPECT_EQ(Status({"index", "show", "/v"}), 1);
  EXPECT_EQ(errors_, "keldothumbctl: " + environment_.database_path + ": file is not a database\n");
  EXPECT_EQ(output_, "");
  EXPECT_EQ(Status({"index", "show"}), 2);
}

}  // namespace
}  // namespace keldo::ctl
