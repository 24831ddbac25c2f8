#include "ctl/library/diagnosis.h"

#include <sys/file.h>
#include <unistd.h>

#include "ctl/library/library_test_support.h"
#include "support/images.h"
#include "util/handles.h"

namespace keldo::ctl {
namespace {

using ::testing::AnyOf;
using ::testing::StartsWith;

class DiagnosisTest : public LibraryTest {
 protected:
  const std::string jpeg_ = testing::EncodeJpeg(testing::FourCorners(64, 48));
  // The text if nothing is found: only the converter can know.
  static constexpr const char* kNothingFound = "the converter rejected it";
};

TEST_F(DiagnosisTest, BlamesTheConverterWhenThePhotoLooksGood) {
  const std::string path = Photo("a.jpg", jpeg_);
  EXPECT_THAT(WhyFailed(path),
              AnyOf(StartsWith(kNothingFound), StartsWith("the converter is missing")));
}

TEST_F(DiagnosisTest, SaysWhatIsWrongWithTheFile) {
  EXPECT_EQ(WhyFailed(In("none.jpg")), "is gone");
  EXPECT_EQ(WhyFailed(Photo("empty.jpg", "")), "is empty");
  std::filesystem::create_directory(In("folder.jpg"));
  EXPECT_EQ(WhyFailed(In("folder.jpg")), "is not a regular file");
}

TEST_F(DiagnosisTest, SaysWhatIsWrongWithTheContent) {
  EXPECT_EQ(WhyFailed(Photo("zeros.jpg", std::string(10000, '\0'))),
            "contains zeros instead of an image, as after an interrupted copy");
  EXPECT_EQ(WhyFailed(Photo("page.jpg", "<!DOCTYPE html><title>404</title>")),
            "is a web page, not a photo");
  EXPECT_EQ(WhyFailed(Photo("film.jpg", std::string("\0\0\0\x18"
                                                    "ftypisom",
                                                    12))),
            "is a video, not a photo");
  EXPECT_EQ(WhyFailed(Photo("text.jpg", "hello")),
            "is damaged at its start, or not a photo at all");
  EXPECT_EQ(WhyFailed(Photo("cut.jpg", jpeg_.substr(0, jpeg_.size() - 20))),
            "is cut off: the end of the image is missing");
  EXPECT_EQ(WhyFailed(Photo("short.jpg", jpeg_.substr(0, 8))),
            "is cut off: the end of the image is missing");
  EXPECT_EQ(WhyFailed(Photo("damaged.jpg", jpeg_.substr(0, 8) + std::string(9, 'x') + "\xFF\xD9")),
            "is damaged at its start, or not a photo at all");
  EXPECT_THAT(WhyFailed(Photo("trailer.jpg", jpeg_ + std::string(100, 'x'))),
              StartsWith("the converter"))
      << "cameras append data of their own";
}

TEST_F(DiagnosisTest, DoesNotBlameTheContentOfAnUnfinishedPhoto) {
  EXPECT_THAT(WhyUnfinished(Photo("text.jpg", "hello")),
              AnyOf(StartsWith("not made yet"), StartsWith("the converter is missing")));
}

TEST_F(DiagnosisTest, ADirectoryIsLockedWhileItsLockIsHeld) {
  Photo("a.jpg", jpeg_);
  EXPECT_FALSE(IsDirectoryLocked(root_));
  std::filesystem::create_directory(In("@eaDir"));
  EXPECT_FALSE(IsDirectoryLocked(root_));
  UniqueFd lock(open(In("@eaDir").c_str(), O_RDONLY | O_CLOEXEC));
  ASSERT_EQ(flock(lock.get(), LOCK_EX | LOCK_NB), 0);
  EXPECT_TRUE(IsDirectoryLocked(root_));
  lock.reset();
  EXPECT_FALSE(IsDirectoryLocked(root_));
}

}  // namespace
}  // namespace keldo::ctl
