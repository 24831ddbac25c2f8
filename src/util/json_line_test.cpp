#include "util/json_line.h"

#include <gtest/gtest.h>

#include <string>

namespace keldo {
namespace {

TEST(JsonLine, IsCompactAndOnOneLine) {
  Json::Value value;
  value["command"] = "POST_PHOTO_CONVERT";
  value["path"] = "/v/\"a\"\n.jpg";
  EXPECT_EQ(JsonLine(value), R"({"command":"POST_PHOTO_CONVERT","path":"/v/\"a\"\n.jpg"})");
  EXPECT_EQ(JsonLine(Json::Value(Json::objectValue)), "{}");
}

TEST(JsonLine, EscapesNonAsciiCharacters) {
  Json::Value value;
  value["path"] = "/v/\xC3\xA4\xF0\x9F\x93\xB7";  // a with dots, a camera
  EXPECT_EQ(JsonLine(value), R"({"path":"/v/\u00e4\ud83d\udcf7"})");
}

TEST(JsonLine, BytesThatAreNotUtf8StayAsTheyAre) {
  Json::Value value;
  value["path"] = "/v/\xE4\x80.jpg";
  value["title"] = "\xC3\xA4";
  EXPECT_EQ(JsonLine(value), "{\"path\":\"/v/\xE4\x80.jpg\",\"title\":\"\xC3\xA4\"}");
}

TEST(JsonLine, IsReadBackByteForByte) {
  for (const std::string path : {"/v/a", "/v/\xC3\xA4", "/v/\xFF\n\\\"%", "\x01\x7F"}) {
    Json::Value value;
    value["path"] = path;
    Json::Value read;
    ASSERT_TRUE(ParseJsonObject(JsonLine(value), read));
    EXPECT_EQ(read["path"].asString(), path);
  }
}

TEST(ParseJsonObject, AcceptsOneObjectWithWhiteSpaceAround) {
  Json::Value value;
  EXPECT_TRUE(ParseJsonObject(" {\"success\": true}\r\n", value));
  EXPECT_TRUE(value["success"].asBool());
  EXPECT_TRUE(ParseJsonObject("{}", value));
}

TEST(ParseJsonObject, GivesAnEmptyObjectForEverythingElse) {
  const std::string deep(100'000, '[');
  const std::string deep_object = "{\"a\":" + deep + "}";
  for (const std::string& text :
       {std::string(), std::string("\n"), std::string("garbage"), std::string("[1]"),
        std::string("true"), std::string("\"text\""), std::string("{\"a\":1"),
        std::string("{\"a\":1}{\"b\":2}"), std::string("{\"a\":1}\n{\"b\":2}\n"),
        std::string("{\"a\":1} x"), std::string("{a:1}"), std::string("// c\n{}"),
        std::string("{\"a\":\0}", 7), deep, deep_object}) {
    Json::Value value("before");
    EXPECT_FALSE(ParseJsonObject(text, value)) << text.substr(0, 40);
    EXPECT_EQ(value, Json::Value(Json::objectValue));
  }
}

TEST(IsUtf8, KnowsEveryLength) {
  EXPECT_TRUE(IsUtf8(""));
  EXPECT_TRUE(IsUtf8(std::string("a\x7F\0\n", 4)));
  EXPECT_TRUE(IsUtf8("\xC2\x80 \xDF\xBF"));
  EXPECT_TRUE(IsUtf8("\xE0\xA0\x80 \xED\x9F\xBF \xEE\x80\x80 \xEF\xBF\xBF"));
  EXPECT_TRUE(IsUtf8("\xF0\x90\x80\x80 \xF4\x8F\xBF\xBF"));
}

TEST(IsUtf8, RefusesCutOverlongAndInvalidCharacters) {
  for (const char* text :
       {"\x80", "a\xBF", "\xC3", "\xC3(", "\xE2\x82", "\xF0\x9F\x93", "\xC0\xAF", "\xC1\xBF",
        "\xE0\x9F\xBF", "\xF0\x8F\xBF\xBF", "\xED\xA0\x80", "\xED\xBF\xBF", "\xF4\x90\x80\x80",
        "\xF8\x88\x80\x80", "\xFE", "\xFF"}) {
    EXPECT_FALSE(IsUtf8(text)) << text;
  }
}

}  // namespace
}  // namespace keldo
