#include "convert/cli/files.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>

#include "convert/pixels/image.h"
#include "support/file_test.h"

namespace {

using keldo::UniqueFd;
using keldo::convert::ImageError;
using keldo::convert::InputFile;
using keldo::convert::OutputFiles;
using keldo::convert::Step;

namespace fs = std::filesystem;

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

TEST_F(OutputFilesTest, AFileThatTookItsPlaceStays) {
  {
    OutputFiles outputs;
    ASSERT_TRUE(outputs.Open(StepsTo({"a.jpg"}), {}));
    Write("other", "another's");
    fs::rename(In("other"), In("a.jpg"));
  }
  EXPECT_EQ(Read(In("a.jpg")), "another's");
}

TEST_F(OutputFilesTest, OneThatCannotBeOpenedTakesTheOthersAlong) {
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

TEST_F(OutputFilesTest, ThePhotoIsNoOutput) {
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

// The descriptor by which this test has a file on loan, as a file server's clients do.
int lent = -1;

TEST_F(OutputFilesTest, AFileThatAServerHasLentIsWaitedFor) {
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

TEST_F(OutputFilesTest, OddOutputsAreAnothersBusiness) {
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
