#include "convert/cli/input_file.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <optional>

#include "convert/pixels/image.h"
#include "support/file_test.h"

namespace {

using keldo::convert::ImageError;
using keldo::convert::InputFile;

class InputFileTest : public keldo::testing::FileTest {
 protected:
  static std::string Read(const std::string& operand) {
    InputFile file(operand);
    file.Map();
    return {file.bytes().begin(), file.bytes().end()};
  }

  // The kind of failure and its text; nothing when the file could be read.
  static std::optional<ImageError> Failure(const std::string& operand) {
    try {
      static_cast<void>(Read(operand));
    } catch (const ImageError& error) {
      return error;
    }
    return std::nullopt;
  }
};

TEST_F(InputFileTest, GivesTheWholeContent) {
  std::string content;
  for (int i = 0; i < 10000; ++i)
    content += static_cast<char>(i * 7);
  EXPECT_EQ(Read(Write("a.jpg", content)), content);
}

TEST_F(InputFileTest, NamesAreBytes) {
  for (const char* name :
       {"a b", "a\nb", "%d.jpg", "a[1].gif", "png:a", "-x", "@x", "\xff\xfe", "*"})
    EXPECT_EQ(Read(Write(name, name)), name);
}

TEST_F(InputFileTest, FirstFrameIsNoPartOfTheName) {
  Write("a.gif", "photo");
  EXPECT_EQ(Read(In("a.gif[0]")), "photo");
  Write("a.gif[0]", "another");
  EXPECT_EQ(Read(In("a.gif[0]")), "photo");
  EXPECT_EQ(Read(Write("b.gif[0]", "of that name")), "of that name");
  EXPECT_EQ(Read(In("b.gif[0][0]")), "of that name");
  EXPECT_TRUE(Failure(In("a.gif[1]")));
}

TEST_F(InputFileTest, SaysWhyItCannotBeOpened) {
  const auto missing = Failure(In("missing.jpg"));
  ASSERT_TRUE(missing);
  EXPECT_EQ(missing->kind(), ImageError::Kind::kCorrupt);
  EXPECT_STREQ(missing->what(), "No such file or directory");
  EXPECT_STREQ(Failure(In("missing.gif[0]"))->what(), "No such file or directory");
}

TEST_F(InputFileTest, EmptyFile) {
  const auto empty = Failure(Write("empty.jpg", ""));
  ASSERT_TRUE(empty);
  EXPECT_EQ(empty->kind(), ImageError::Kind::kCorrupt);
  EXPECT_STREQ(empty->what(), "the file is empty");
}

TEST_F(InputFileTest, OnlyRegularFilesAreOurs) {
  ASSERT_EQ(mkfifo(In("pipe.jpg").c_str(), 0600), 0);
  std::filesystem::create_directory(In("dir.jpg"));
  for (const std::string& path : {In("pipe.jpg"), In("dir.jpg"), std::string("/dev/null")}) {
    const auto failure = Failure(path);
    ASSERT_TRUE(failure) << path;
    EXPECT_EQ(failure->kind(), ImageError::Kind::kUnsupported) << path;
  }
}

TEST_F(InputFileTest, IdentityIsThatOfTheFile) {
  const std::string path = Write("a.jpg", "a");
  std::filesystem::create_hard_link(path, In("b.jpg"));
  std::filesystem::create_symlink(path, In("c.jpg"));
  EXPECT_EQ(InputFile(path).identity(), InputFile(In("b.jpg")).identity());
  EXPECT_EQ(InputFile(path).identity(), InputFile(In("c.jpg")).identity());
  EXPECT_NE(InputFile(path).identity(), InputFile(Write("d.jpg", "a")).identity());
}

}  // namespace
