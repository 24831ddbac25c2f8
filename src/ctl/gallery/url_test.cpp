#include "ctl/gallery/url.h"

#include <gtest/gtest.h>

namespace keldo::ctl {
namespace {

TEST(UrlPath, PlainNamesStayAsTheyAre) {
  EXPECT_EQ(UrlPath("IMG_0001-a.b~c.JPG"), "IMG_0001-a.b~c.JPG");
  EXPECT_EQ(UrlPath("a/b"), "a/b");
}

TEST(UrlPath, EveryByteThatMeansSomethingIsEncoded) {
  EXPECT_EQ(UrlPath("50% #1?.jpg"), "50%25%20%231%3F.jpg");
  EXPECT_EQ(UrlPath("a\"b'c<d>\\e"), "a%22b%27c%3Cd%3E%5Ce");
  EXPECT_EQ(UrlPath("a\nb\tc"), "a%0Ab%09c");
  EXPECT_EQ(UrlPath("x:y@z&+=;,[]()*|"), "x%3Ay%40z%26%2B%3D%3B%2C%5B%5D%28%29%2A%7C");
}

TEST(UrlPath, BytesThatAreNotAsciiAreEncodedOneByOneWhetherUtf8OrNot) {
  EXPECT_EQ(UrlPath("\xC3\xA9"), "%C3%A9");
  EXPECT_EQ(UrlPath("caf\xE9\xFF\x80"), "caf%E9%FF%80");
}

TEST(RelativeUrl, GoesDownUpAndAcross) {
  EXPECT_EQ(RelativeUrl("/v/photo", "/v/photo"), "./");
  EXPECT_EQ(RelativeUrl("/v", "/v/photo/2024"), "./photo/2024/");
  EXPECT_EQ(RelativeUrl("/v/photo/2024", "/v/photo"), "../");
  EXPECT_EQ(RelativeUrl("/home/me/pages", "/volume1/photo"), "../../../volume1/photo/");
}

TEST(RelativeUrl, ComparesWholeNames) {
  EXPECT_EQ(RelativeUrl("/v/photo", "/v/photos"), "../photos/");
  EXPECT_EQ(RelativeUrl("/v/photos", "/v/photo"), "../photo/");
}

TEST(RelativeUrl, KnowsTheRootDirectory) {
  EXPECT_EQ(RelativeUrl("/", "/"), "./");
  EXPECT_EQ(RelativeUrl("/", "/v"), "./v/");
  EXPECT_EQ(RelativeUrl("/a/b", "/"), "../../");
}

TEST(RelativeUrl, NeverLooksLikeASchemeOrAnotherHost) {
  EXPECT_EQ(RelativeUrl("/v", "/v/javascript:x"), "./javascript%3Ax/");
  EXPECT_EQ(RelativeUrl("/v", "/v/-o"), "./-o/");
  EXPECT_EQ(RelativeUrl("/a b", "/c#d/e"), "../c%23d/e/");
}

}  // namespace
}  // namespace keldo::ctl
