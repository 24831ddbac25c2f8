#include "ctl/gallery/page.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

namespace keldo::ctl {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

TEST(RenderPage, InsertsEverything) {
  const std::string page = RenderPage("Our photos", R"({"made":1})");
  EXPECT_THAT(page, StartsWith("<!DOCTYPE html>"));
  EXPECT_THAT(page, HasSubstr("<title>Our photos</title>"));
  EXPECT_THAT(page, HasSubstr("<h1>Our photos</h1>"));
  EXPECT_THAT(page, HasSubstr("<style>" + std::string(kPageStyle) + "</style>"));
  EXPECT_THAT(page, HasSubstr("<script>" + std::string(kPageScript) + "</script>"));
  EXPECT_THAT(page, HasSubstr(R"(id="data">{"made":1}</script>)"));
  for (const std::string mark : {"@CSP@", "@TITLE@", "@STYLE@", "@SCRIPT@", "@DATA@"})
    EXPECT_THAT(page, Not(HasSubstr(mark)));
}

TEST(RenderPage, DoesNotSearchInsertedTextForMarks) {
  const std::string page = RenderPage("@DATA@ </title><script>", "@STYLE@");
  EXPECT_THAT(page, HasSubstr("<title>@DATA@ &lt;/title&gt;&lt;script&gt;</title>"));
  EXPECT_THAT(page, HasSubstr(R"(id="data">@STYLE@</script>)"));
}

TEST(RenderPage, AllowsOnlyItsOwnStyleAndScriptAndLoadsNothingFromOutside) {
  const std::string page = RenderPage("t", "{}");
  EXPECT_THAT(page, HasSubstr("content=\"default-src 'none'; img-src 'self' file:; "
                              "style-src 'sha256-" +
                              std::string(kPageStyleSum) + "'; script-src 'sha256-" +
                              std::string(kPageScriptSum) + "'"));
  EXPECT_EQ(kPageStyleSum.size(), 44U);
  EXPECT_EQ(kPageScriptSum.size(), 44U);
  EXPECT_THAT(page, Not(HasSubstr("http:")));
  EXPECT_THAT(page, Not(HasSubstr("https:")));
  EXPECT_THAT(page, Not(HasSubstr("unsafe")));
}

TEST(LooksLikePage, TellsPagesFromPhotos) {
  EXPECT_TRUE(LooksLikePage("<!DOCTYPE html>\n"));
  EXPECT_TRUE(LooksLikePage("<html lang=\"en\">"));
  EXPECT_FALSE(LooksLikePage("\xFF\xD8\xFF\xE0"));
  EXPECT_FALSE(LooksLikePage("# Notes\n"));
}

}  // namespace
}  // namespace keldo::ctl
