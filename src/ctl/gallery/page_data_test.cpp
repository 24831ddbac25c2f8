#include "ctl/gallery/page_data.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <json/value.h>
#include <sys/stat.h>

#include <string>
#include <vector>

#include "ctl/library/library_test_support.h"
#include "util/json_line.h"

namespace keldo::ctl {
namespace {

class PageDataOf : public LibraryTest {
 protected:
  // The data of a page in `page_directory` over directories of the library.
  Json::Value Read(const std::string& page_directory, const std::vector<std::string>& directories) {
    std::vector<std::string> roots;
    for (const std::string& directory : directories)
      roots.push_back(In(directory));
    PageData data(In(page_directory), roots);
    PhotoScanner scanner;
    for (const std::string& root : roots)
      data.Add(scanner.Scan(root));
    json_ = data.Json(1'700'000'000, false);
    counts_ = data.counts();
    Json::Value value;
    EXPECT_TRUE(ParseJsonObject(json_, value)) << json_;
    return value;
  }

  static std::string SetOf(const Json::Value& data, int photo) {
    return data["sets"][data["folders"][0]["sets"][photo].asInt()].asString();
  }
  static std::string ReasonOf(const Json::Value& data, const std::string& photo) {
    return data["reasons"][data["folders"][0]["why"][photo].asInt()].asString();
  }

  void FinishedPhoto(const std::string& name) const {
    Photo(name);
    AllThumbs(name);
  }
  void FailedPhoto(const std::string& name) const {
    Photo(name, "");
    Markers(name, {"XL", "B", "M"});
  }

  std::string json_;
  LibraryCounts counts_;
};

TEST_F(PageDataOf, AFinishedPhotoHasItsNameStateSizeAndTime) {
  FinishedPhoto("photo/a.jpg");
  const Json::Value data = Read("photo", {"photo"});
  EXPECT_EQ(data["made"].asInt64(), 1'700'000'000);
  EXPECT_FALSE(data["partial"].asBool());
  EXPECT_EQ(data["roots"][0].asString(), In("photo"));
  const Json::Value& folder = data["folders"][0];
  EXPECT_EQ(folder["name"].asString(), "photo");
  EXPECT_EQ(folder["url"].asString(), "./");
  EXPECT_EQ(folder["names"][0].asString(), "a.jpg");
  EXPECT_EQ(folder["bytes"][0].asInt(), 5);
  EXPECT_EQ(folder["changed"][0].asInt64(), kPhotoTime);
  EXPECT_TRUE(folder["urls"].empty());
  EXPECT_TRUE(folder["why"].empty());
  EXPECT_EQ(SetOf(data, 0), "pppppp");
}

TEST_F(PageDataOf, OrdersKindsFromSmallestToLargest) {
  FinishedPhoto("photo/a.jpg");
  const Json::Value data = Read("photo", {"photo"});
  std::string names;
  for (const Json::Value& kind : data["kinds"])
    names += kind["name"].asString() + " " + std::to_string(kind["box"].asInt()) + ",";
  EXPECT_EQ(names, "S 120,SM 240,M 320,B 640,L 800,XL 1280,");
  EXPECT_EQ(data["kinds"][5]["file"].asString(), "KELDOPHOTO_THUMB_XL.jpg");
  EXPECT_EQ(data["kinds"][5]["older"].asString(), "KELDOPHOTO%3ATHUMB_XL.jpg");
}

TEST_F(PageDataOf, OrdersStatesLikeTheKinds) {
  FinishedPhoto("photo/a.jpg");
  const std::string metadata = Ea("photo/a.jpg") + "/KELDOPHOTO_THUMB_";
  std::filesystem::remove(metadata + "S.jpg");
  std::filesystem::rename(metadata + "SM.jpg", Ea("photo/a.jpg") + "/KELDOPHOTO:THUMB_SM.jpg");
  std::filesystem::remove(metadata + "M.jpg");
  Write(metadata + "M.fail", "");
  Write(metadata + "XL.jpg", "");  // Empty counts as stale.
  EXPECT_EQ(SetOf(Read("photo", {"photo"}), 0), "mPfpps");
}

TEST_F(PageDataOf, SaysWhyThumbnailsAreMissing) {
  FailedPhoto("photo/bad.jpg");
  FinishedPhoto("photo/good.jpg");
  Photo("photo/new.jpg");
  const Json::Value data = Read("photo", {"photo"});
  EXPECT_EQ(ReasonOf(data, "0"), "is empty");
  EXPECT_FALSE(data["folders"][0]["why"].isMember("1"));
  EXPECT_NE(ReasonOf(data, "2"), "");
  EXPECT_EQ(counts_.photos, 3);
  EXPECT_EQ(counts_.failed_photos, 1);
  EXPECT_EQ(counts_.unfinished_photos, 1);
}

TEST_F(PageDataOf, PhotosWithTheSameStatesShareThem) {
  for (const char* name : {"photo/a.jpg", "photo/b.jpg", "photo/c.jpg"})
    FinishedPhoto(name);
  FailedPhoto("photo/d.jpg");
  FailedPhoto("photo/e.jpg");
  const Json::Value data = Read("photo", {"photo"});
  EXPECT_EQ(data["sets"].size(), 2U);
  EXPECT_EQ(data["reasons"].size(), 1U);
}

TEST_F(PageDataOf, HostileNamesStayInTheirStrings) {
  const std::string hostile = "<!--<img src=x onerror=alert(1)>.jpg";
  FinishedPhoto("photo/" + hostile);
  FinishedPhoto("photo/a\"b\\c\n.jpg");
  const Json::Value data = Read("photo", {"photo"});
  EXPECT_EQ(json_.find_first_of("<>&"), std::string::npos);
  EXPECT_EQ(data["folders"][0]["names"][0].asString(), hostile);
  EXPECT_EQ(data["folders"][0]["names"][1].asString(), R"(a"b\\c\n.jpg)");
  EXPECT_EQ(data["folders"][0]["urls"]["1"].asString(), "a%22b%5Cc%0A.jpg");
}

TEST_F(PageDataOf, NamesOfAnyBytesHaveATextAndAnAddress) {
  FinishedPhoto("f\xF6lder #1/caf\xE9\xFF.jpg");
  const Json::Value data = Read("", {"f\xF6lder #1"});
  const Json::Value& folder = data["folders"][0];
  EXPECT_EQ(folder["name"].asString(), R"(f\xf6lder #1)");
  EXPECT_EQ(folder["url"].asString(), "./f%F6lder%20%231/");
  EXPECT_EQ(folder["names"][0].asString(), R"(caf\xe9\xff.jpg)");
  EXPECT_EQ(folder["urls"]["0"].asString(), "caf%E9%FF.jpg");
}

TEST_F(PageDataOf, AddressesFoldersRelativeToThePage) {
  FinishedPhoto("photo/2024/a.jpg");
  FinishedPhoto("scans/b.jpg");
  const Json::Value data = Read("pages/photos", {"photo/2024", "scans"});
  EXPECT_EQ(data["folders"][0]["url"].asString(), "../../photo/2024/");
  EXPECT_EQ(data["folders"][1]["url"].asString(), "../../scans/");
  EXPECT_EQ(data["folders"][0]["name"].asString(), "photo/2024");
  EXPECT_EQ(data["folders"][1]["name"].asString(), "scans");
}

TEST_F(PageDataOf, AcceptsALibraryWithoutPhotos) {
  std::filesystem::create_directories(In("photo"));
  PageData data(In(""), {In("photo")});
  Json::Value value;
  EXPECT_TRUE(ParseJsonObject(data.Json(0, true), value));
  EXPECT_TRUE(value["folders"].empty());
  EXPECT_TRUE(value["partial"].asBool());
}

TEST(FolderNames, BeginWithTheNameOfTheirRoot) {
  EXPECT_EQ(DirectoryAbove({"/v/photo"}), "/v");
  EXPECT_EQ(DirectoryAbove({"/v/photo", "/v/scans/old"}), "/v");
  EXPECT_EQ(DirectoryAbove({"/v/photo", "/v/photo/2024"}), "/v");
  EXPECT_EQ(DirectoryAbove({"/v/photo", "/v/photos"}), "/v");
  EXPECT_EQ(DirectoryAbove({"/v/photo", "/w/photo"}), "/");
  EXPECT_EQ(DirectoryAbove({"/photo"}), "/");
  EXPECT_EQ(DirectoryAbove({"/v", "/"}), "");
  EXPECT_EQ(NameBelow("/v", "/v/photo/2024"), "photo/2024");
  EXPECT_EQ(NameBelow("/", "/photo"), "photo");
  EXPECT_EQ(NameBelow("", "/"), "/");
  EXPECT_EQ(NameBelow("", "/photo"), "photo");
}

}  // namespace
}  // namespace keldo::ctl
