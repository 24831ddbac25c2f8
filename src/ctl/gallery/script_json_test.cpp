#include "ctl/gallery/script_json.h"

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

TEST(ScriptString, PlainTextStaysReadable) {
  EXPECT_EQ(ScriptString("IMG 1.jpg"), "\"IMG 1.jpg\"");
  EXPECT_EQ(ScriptString(""), "\"\"");
  EXPECT_EQ(ScriptString("caf\xC3\xA9 \xF0\x9F\x93\xB7"), "\"caf\xC3\xA9 \xF0\x9F\x93\xB7\"");
}

TEST(ScriptString, NothingEndsTheScriptOrOpensAComment) {
  for (const std::string text :
       {"</script><img src=x onerror=alert(1)>", "<!--<script>", "]]>", "&lt;/script&gt;"}) {
    const std::string json = ScriptString(text);
    EXPECT_EQ(json.find_first_of("<>&"), std::string::npos) << json;
    EXPECT_EQ(ReadBack(json), text);
  }
}

TEST(ScriptString, QuotesBackslashesAndControlCharactersSurvive) {
  std::string all;
  for (char character = 1; character < 0x7F; ++character)
    all += character;
  all += '\x7F';
  const std::string json = ScriptString(all);
  for (const char character : json)
    EXPECT_GE(character, ' ');
  EXPECT_EQ(ReadBack(json), all);
}

TEST(ScriptString, LineSeparatorsOfJavaScriptAreEscaped) {
  EXPECT_EQ(ScriptString("a\xE2\x80\xA8z\xE2\x80\xA9"), "\"a\\u2028z\\u2029\"");
  EXPECT_EQ(ScriptString("\xE2\x80\xA7"), "\"\xE2\x80\xA7\"");
}

TEST(HtmlText, NoMarkupIsLeft) {
  EXPECT_EQ(HtmlText("Us & \"them\" <b>'x'</b>"),
            "Us &amp; &quot;them&quot; &lt;b&gt;&#39;x&#39;&lt;/b&gt;");
}

}  // namespace
}  // namespace keldo::ctl
