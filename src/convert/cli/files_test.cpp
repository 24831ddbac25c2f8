#include "convert/cli/files.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <optional>

#include "convert/pixels/image.h"
#include "support/file_test.h"

namespace {

using keldo::UniqueFd;
using keldo::convert::ImageError;
using keldo::convert::InputFile;
using keldo::convert::OutputFiles;
using keldo::convert::Step;

namespace fs = std::filesystem;

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

TEST_F(InputFileTest, MapsTheWholeContent) {
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

TEST_F(InputFileTest, FirstFrameIsNotPartOfTheName) {
  Write("a.gif", "photo");
  EXPECT_EQ(Read(In("a.gif[0]")), "photo");
  Write("a.gif[0]", "another");
  EXPECT_EQ(Read(In("a.gif[0]")), "photo");
  EXPECT_EQ(Read(Write("b.gif[0]", "of that name")), "of that name");
  EXPECT_EQ(Read(In("b.gif[0][0]")), "of that name");
  EXPECT_TRUE(Failure(In("a.gif[1]")));
}

TEST_F(InputFileTest, ReportsWhyItCannotBeOpened) {
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

TEST_F(InputFileTest, OnlyRegularFilesAreMapped) {
  ASSERT_EQ(mkfifo(In("pipe.jpg").c_str(), 0600), 0);
  fs::create_directory(In("dir.jpg"));
  for (const std::string& path : {In("pipe.jpg"), In("dir.jpg"), std::string("/dev/null")}) {
    const auto failure = Failure(path);
    ASSERT_TRUE(failure) << path;
    EXPECT_EQ(failure->kind(), ImageError::Kind::kUnsupported) << path;
  }
}

TEST_F(InputFileTest, IdentityIsThatOfTheFile) {
  const std::string path = Write("a.jpg", "a");
  fs::create_hard_link(path, In("b.jpg"));
  fs::create_symlink(path, In("c.jpg"));
  EXPECT_EQ(InputFile(path).identity(), InputFile(In("b.jpg")).identity());
  EXPECT_EQ(InputFile(path).identity(), InputFile(In("c.jpg")).identity());
  EXPECT_NE(InputFile(path).identity(), InputFile(Write("d.jpg", "a")).identity());
}

class OutputFilesTest : public keldo::testing::FileTest {
 protected:
  std::vector<Step> StepsTo(const std::vector<std::string>& names) const {
    std::vector<Step> steps(names.size());
    for (std::size_t i = 0; i < names.size(); ++i)
      steps[i].output = In(names[i]);
    return steps;
  }
};

TEST_F(OutputFilesTest, CreatesAndKeeps) {
  const mode_t before = umask(0027);
  {
    OutputFiles outputs;
    ASSERT_TRUE(outputs.Open(StepsTo({"a.jpg", "b.jpg"}), {}));
    ASSERT_EQ(outputs.descriptors().size(), 2U);
    ASSERT_EQ(write(outputs.descriptors()[1], "B", 1), 1);
    outputs.Close();
  }
  umask(before);
  EXPECT_EQ(Read(In("a.jpg")), "");
  EXPECT_EQ(Read(In("b.jpg")), "B");
  EXPECT_EQ(fs::status(In("a.jpg")).permissions(), static_cast<fs::perms>(0640));
}

TEST_F(OutputFilesTest, RemovesWhatItCreatedAndNothingElse) {
  Write("old.jpg", "as it was");
  {
    OutputFiles outputs;
    ASSERT_TRUE(outputs.Open(StepsTo({"new.jpg", "old.jpg"}), {}));
    EXPECT_TRUE(fs::exists(In("new.jpg")));
  }
  EXPECT_FALSE(fs::exists(In("new.jpg")));
  EXPECT_EQ(Read(In("old.jpg")), "as it was");
}

TEST_F(OutputFilesTest, AFileThatReplacedItStays) {
  {
    OutputFiles outputs;
    ASSERT_TRUE(outputs.Open(StepsTo({"a.jpg"}), {}));
    Write("other", "another's");
    fs::rename(In("other"), In("a.jpg"));
  }
  EXPECT_EQ(Read(In("a.jpg")), "another's");
}

TEST_F(OutputFilesTest, WhereOneCannotBeOpenedTheOthersAreRemoved) {
  try {
    OutputFiles outputs;
    static_cast<void>(outputs.Open(StepsTo({"a.jpg", "missing/b.jpg"}), {}));
    FAIL() << "opened";
  } catch (const ImageError& error) {
    EXPECT_EQ(error.kind(), ImageError::Kind::kOutput);
    EXPECT_EQ(error.what(), "cannot write " + In("missing/b.jpg") + ": No such file or directory");
  }
  EXPECT_FALSE(fs::exists(In("a.jpg")));
}

TEST_F(OutputFilesTest, ThePhotoIsNotAnOutput) {
  const std::string photo = Write("photo.jpg", "photo");
  fs::create_hard_link(photo, In("hard.jpg"));
  fs::create_symlink(photo, In("soft.jpg"));
  for (const char* name : {"photo.jpg", "hard.jpg", "soft.jpg"}) {
    OutputFiles outputs;
    EXPECT_THROW(
        static_cast<void>(outputs.Open(StepsTo({"a.jpg", name}), InputFile(photo).identity())),
        ImageError)
        << name;
  }
  EXPECT_FALSE(fs::exists(In("a.jpg")));
  EXPECT_EQ(Read(photo), "photo");
  EXPECT_TRUE(fs::exists(In("hard.jpg")));
}

// The descriptor by which this test holds a lease on a file, as a file server does.
int lent = -1;

TEST_F(OutputFilesTest, WaitsForTheLeaseOfAFileServer) {
  const UniqueFd borrowed(open(Write("lent.jpg", "old").c_str(), O_RDONLY | O_CLOEXEC));
  lent = borrowed.get();
  struct sigaction give_back {};
  give_back.sa_handler = [](int) { fcntl(lent, F_SETLEASE, F_UNLCK); };
  give_back.sa_flags = SA_RESTART;
  struct sigaction before {};
  sigaction(SIGIO, &give_back, &before);
  ASSERT_EQ(fcntl(lent, F_SETLEASE, F_RDLCK), 0);
  OutputFiles outputs;
  EXPECT_TRUE(outputs.Open(StepsTo({"lent.jpg"}), {}));
  sigaction(SIGIO, &before, nullptr);
}

TEST_F(OutputFilesTest, OddOutputsAreLeftToImageMagick) {
  ASSERT_EQ(mkfifo(In("pipe.jpg").c_str(), 0600), 0);
  fs::create_symlink(In("nowhere"), In("dangling.jpg"));
  fs::create_symlink("/dev/null", In("device.jpg"));
  for (const std::vector<std::string>& names : {std::vector<std::string>{"a.jpg", "a.jpg"},
                                                {"pipe.jpg", "b.jpg"},
                                                {"dangling.jpg"},
                                                {"device.jpg"}}) {
    OutputFiles outputs;
    EXPECT_FALSE(outputs.Open(StepsTo(names), {})) << names.front();
    EXPECT_EQ(fs::exists(In("b.jpg")), names.size() > 1 && names[1] == "b.jpg");
  }
  EXPECT_FALSE(fs::exists(In("a.jpg")));
  EXPECT_FALSE(fs::exists(In("nowhere")));
}

}  // namespace
