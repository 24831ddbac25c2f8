#include "convert/sandbox/message.h"

#include <gtest/gtest.h>

namespace {

using keldo::convert::OneLine;
using keldo::convert::PrintError;

TEST(OneLine, ControlCharactersAreShown) {
  EXPECT_EQ(OneLine("a\nb\tc\x1b[2J\x7f\r"), "a\\nb\\tc\\x1b[2J\\x7f\\x0d");
  EXPECT_EQ(OneLine(std::string("\0", 1)), "\\x00");
  EXPECT_EQ(OneLine("\xc2\x9b[2J"), "\\xc2\\x9b[2J");
}

TEST(OneLine, OtherBytesStay) {
  for (const char* text : {"", "plain name.jpg", "\xc3\xa4\xc2\xb5", "\xff\xfe", "%s[0]", "\xc2"})
    EXPECT_EQ(OneLine(text), text);
}

TEST(PrintError, WritesOneLine) {
  testing::internal::CaptureStderr();
  PrintError("a\nb.jpg", "the file is empty");
  PrintError("a message");
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "convert-thumb: a\\nb.jpg: the file is empty\nconvert-thumb: a message\n");
}

}  // namespace
