#include "platform/conf_parser.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <array>
#include <climits>
#include <fstream>
#include <string>
#include <string_view>

#include "support/temp_dir.h"

namespace {

using keldo::testing::TempDir;
using KELDOUtils::ConfParser;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class ConfParserTest : public ::testing::Test {
 protected:
  int Load(std::string_view content) {
    const std::string path = dir_.path() + "/thumb.conf";
    std::ofstream(path, std::ios::binary) << content;
    parser_ = ConfParser();
    return parser_.loadFromFile(path.c_str());
  }
  std::string Get(const std::string& section, const std::string& key) {
    return parser_.getString(section, key, "(none)");
  }

  TempDir dir_;
  ConfParser parser_;
};

TEST_F(ConfParserTest, ReadsSectionsAndValues) {
  ASSERT_NE(Load("; thumbnails\n"
                 "# of all sizes\n"
                 "[thumb_m]\n"
                 "size=320\n"
                 "filename = KELDOPHOTO:THUMB_M.jpg  \n"
                 "\n"
                 "[thumb_s]\n"
                 "unsharp\t=\t0.5x0.5+1.25+0.0\n"),
            0);
  EXPECT_THAT(parser_.enumSections(), ElementsAre("thumb_m", "thumb_s"));
  EXPECT_EQ(parser_.getInt("thumb_m", "size", 1), 320);
  EXPECT_EQ(Get("thumb_m", "filename"), "KELDOPHOTO:THUMB_M.jpg");
  EXPECT_EQ(Get("thumb_s", "unsharp"), "0.5x0.5+1.25+0.0");
}

TEST_F(ConfParserTest, AbsentKeysHaveTheFallback) {
  ASSERT_NE(Load("[thumb]\nempty=\n"), 0);
  EXPECT_EQ(Get("thumb", "size"), "(none)");
  EXPECT_EQ(Get("none", "size"), "(none)");
  EXPECT_EQ(Get("thumb", "Empty"), "(none)");
  EXPECT_EQ(Get("thumb", "empty"), "");
  EXPECT_EQ(parser_.getInt("thumb", "size", 120), 120);
  EXPECT_EQ(parser_.getInt("thumb", "empty", 120), 120);
}

TEST_F(ConfParserTest, ListsEverySectionOnceInFileOrder) {
  ASSERT_NE(Load("[z]\n[a]\nk=1\n[empty]\n[a]\nl=2\n[]\n"), 0);
  EXPECT_THAT(parser_.enumSections(), ElementsAre("z", "a", "empty", ""));
  EXPECT_EQ(Get("a", "k"), "1");
  EXPECT_EQ(Get("a", "l"), "2");
}

TEST_F(ConfParserTest, KeysBeforeTheFirstHeaderMakeNoSection) {
  ASSERT_NE(Load("k=1\n[a]\n"), 0);
  EXPECT_THAT(parser_.enumSections(), ElementsAre("a"));
  EXPECT_EQ(Get("", "k"), "1");
}

TEST_F(ConfParserTest, TheLastValueOfAKeyWins) {
  ASSERT_NE(Load("[a]\nk=1\nk=2\n[b]\n[a]\nk=3\n"), 0);
  EXPECT_EQ(Get("a", "k"), "3");
}

TEST_F(ConfParserTest, IndentedLinesAreNotContinuations) {
  ASSERT_NE(Load("  [thumb]\n  size = 1\n  quality = 2\n\tphase = 3\n"), 0);
  EXPECT_EQ(Get("thumb", "size"), "1");
  EXPECT_EQ(Get("thumb", "quality"), "2");
  EXPECT_EQ(Get("thumb", "phase"), "3");
}

TEST_F(ConfParserTest, CommentsEndLines) {
  ASSERT_NE(Load("[a] ; first\nk=1 ; one\nl=1;2\nm=a#b # c\n ; n=1\n#o=1\np=[x]\n"), 0);
  EXPECT_THAT(parser_.enumSections(), ElementsAre("a"));
  EXPECT_EQ(Get("a", "k"), "1");
  EXPECT_EQ(Get("a", "l"), "1;2");
  EXPECT_EQ(Get("a", "m"), "a#b # c");
  EXPECT_EQ(Get("a", "n"), "(none)");
  EXPECT_EQ(Get("a", "o"), "(none)");
  EXPECT_EQ(Get("a", "p"), "[x]");
}

TEST_F(ConfParserTest, ReadsByteOrderMarksAndCarriageReturns) {
  ASSERT_NE(Load("\xEF\xBB\xBF[a]\r\nk=1\r\n[b]\r\nl=2"), 0);
  EXPECT_THAT(parser_.enumSections(), ElementsAre("a", "b"));
  EXPECT_EQ(Get("a", "k"), "1");
  EXPECT_EQ(Get("b", "l"), "2");
}

TEST_F(ConfParserTest, WhiteSpaceAroundASectionsNameIsIgnored) {
  ASSERT_NE(Load("[ thumb s ]\nk=1\n"), 0);
  EXPECT_THAT(parser_.enumSections(), ElementsAre("thumb s"));
  EXPECT_EQ(Get("thumb s", "k"), "1");
}

TEST_F(ConfParserTest, ALongSectionNameStaysWhole) {
  const std::string name = "thumb" + std::string(100, 'x');
  ASSERT_NE(Load("[" + name + "]\nk=1\n[" + name + "y]\nk=2\n"), 0);
  EXPECT_THAT(parser_.enumSections(), ElementsAre(name, name + "y"));
  EXPECT_EQ(Get(name, "k"), "1");
  EXPECT_EQ(Get(name + "y", "k"), "2");
}

TEST_F(ConfParserTest, ALongCommentIsSkippedWhole) {
  const std::string filler(1000, 'x');
  ASSERT_NE(Load("[a]\n;" + filler + "\n# k=" + filler + "\nl=2 ; " + filler + "\n"), 0);
  EXPECT_EQ(Get("a", "k"), "(none)");
  EXPECT_EQ(Get("a", "l"), "2");
}

TEST_F(ConfParserTest, AValueIsNeverCut) {
  const std::string longest(197, 'x');
  ASSERT_NE(Load("[a]\nk=" + longest + "\n"), 0);
  EXPECT_EQ(Get("a", "k"), longest);
  EXPECT_EQ(Load("[a]\nk=" + longest + "x\n"), 0);
  EXPECT_EQ(Load("[a]\nk=" + std::string(1000, 'x') + "\n"), 0);
  EXPECT_EQ(Load("[" + std::string(1000, 'x') + "]\n"), 0);
}

TEST_F(ConfParserTest, ALineOfAnyOtherFormIsAFailure) {
  constexpr auto kContents = std::to_array<std::string_view>({"[a]\nno equals sign\n",
                                                              "[a\nk=1\n",
                                                              "k: 1\n",
                                                              "a:b=c\n",
                                                              "\x7F_ELF\n",
                                                              "k ; =1\n",
                                                              {"k=1\0x\n", 6}});
  for (const std::string_view content : kContents) {
    EXPECT_EQ(Load(content), 0) << content;
    EXPECT_THAT(parser_.enumSections(), IsEmpty());
  }
}

TEST_F(ConfParserTest, AnUnreadableFileFails) {
  EXPECT_EQ(ConfParser().loadFromFile((dir_.path() + "/none").c_str()), 0);
  EXPECT_EQ(ConfParser().loadFromFile(dir_.path().c_str()), 0);
  const std::string fifo = dir_.path() + "/fifo";
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  EXPECT_EQ(ConfParser().loadFromFile(fifo.c_str()), 0);
}

TEST_F(ConfParserTest, AnEmptyFileSucceeds) {
  ASSERT_NE(Load(""), 0);
  EXPECT_THAT(parser_.enumSections(), IsEmpty());
}

TEST_F(ConfParserTest, ANumberIsAWholeDecimalNumberWithinInt) {
  struct Case {
    const char* text;
    int expected;
  };
  constexpr int kFallback = 7;
  for (const auto& [text, expected] :
       std::initializer_list<Case>{{"320", 320},
                                   {"-1", -1},
                                   {"+5", 5},
                                   {"010", 10},
                                   {"  12  ", 12},
                                   {"2147483647", INT_MAX},
                                   {"2147483648", INT_MAX},
                                   {"-2147483649", INT_MIN},
                                   {"99999999999999999999", INT_MAX},
                                   {"-99999999999999999999", INT_MIN},
                                   {"12px", kFallback},
                                   {"0x10", kFallback},
                                   {"1 2", kFallback},
                                   {"1.5", kFallback},
                                   {"", kFallback},
                                   {"-", kFallback},
                                   {"big", kFallback}}) {
    ASSERT_NE(Load(std::string("[a]\nk=") + text + "\n"), 0);
    EXPECT_EQ(parser_.getInt("a", "k", kFallback), expected) << text;
  }
}

}  // namespace
