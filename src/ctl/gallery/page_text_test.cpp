#include "ctl/gallery/page_text.h"

#include <gtest/gtest.h>
#include <json/reader.h>

#include <memory>
#include <string>

namespace keldo::ctl {
namespace {

std::string ReadBack(const std::string& json) {
  const std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
  Json::Value value;
  std::string problem;
  EXPECT_TRUE(reader->parse(json.data(), json.data() + json.size(), &value, &problem)) << problem;
  return value.asString();
}

TEST(ScriptString, KeepsPlainText) {
  EXPECT_EQ(ScriptString("IMG 1.jpg"), "\"IMG 1.jpg\"");
  EXPECT_EQ(ScriptString(""), "\"\"");
  EXPECT_EQ(ScriptString("caf\xC3\xA9 \xF0\x9F\x93\xB7"), "\"caf\xC3\xA9 \xF0\x9F\x93\xB7\"");
}

TEST(ScriptString, CannotEndTheScriptOrOpenAComment) {
  for (const std::string text :
       {"</script><img src=x onerror=alert(1)>", "<!--<script>", "]]>", "&lt;/script&gt;"}) {
    const std::string json = ScriptString(text);
    EXPECT_EQ(json.find_first_of("<>&"), std::string::npos) << json;
    EXPECT_EQ(ReadBack(json), text);
  }
}

TEST(ScriptString, KeepsQuotesBackslashesAndControlCharacters) {
  std::string all;
  for (char character = 1; character < 0x7F; ++character)
    all += character;
  all += '\x7F';
  const std::string json = ScriptString(all);
  for (const char character : json)
    EXPECT_GE(character, ' ');
  EXPECT_EQ(ReadBack(json), all);
}

TEST(ScriptString, EscapesJavaScriptLineSeparators) {
  EXPECT_EQ(ScriptString("a\xE2\x80\xA8z\xE2\x80\xA9"), "\"a\\u2028z\\u2029\"");
  EXPECT_EQ(ScriptString("\xE2\x80\xA7"), "\"\xE2\x80\xA7\"");
}

TEST(HtmlText, EscapesMarkup) {
  EXPECT_EQ(HtmlText("Us & \"them\" <b>'x'</b>"),
            "Us &amp; &quot;them&quot; &lt;b&gt;&#39;x&#39;&lt;/b&gt;");
}

TEST(UrlPath, KeepsPlainNames) {
  EXPECT_EQ(UrlPath("IMG_0001-a.b~c.JPG"), "IMG_0001-a.b~c.JPG");
  EXPECT_EQ(UrlPath("a/b"), "a/b");
}

TEST(UrlPath, EncodesEveryByteWithAMeaning) {
  EXPECT_EQ(UrlPath("50% #1?.jpg"), "50%25%20%231%3F.jpg");
  EXPECT_EQ(UrlPath("a\"b'c<d>\\e"), "a%22b%27c%3Cd%3E%5Ce");
  EXPECT_EQ(UrlPath("a\nb\tc"), "a%0Ab%09c");
  EXPECT_EQ(UrlPath("x:y@z&+=;,[]()*|"), "x%3Ay%40z%26%2B%3D%3B%2C%5B%5D%28%29%2A%7C");
}

TEST(UrlPath, EncodesNonAsciiBytesOneByOne) {
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

TEST(RelativeUrl, HandlesTheRootDirectory) {
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
