#include "ctl/library/metadata_cleaner.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <vector>

#include "ctl/library/command_test_support.h"
#include "support/temp_dir.h"
#include "thumbs/metadata_names.h"
#include "util/handles.h"

namespace keldo::ctl {
namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using State = MetadataCleaner::State;
using Reason = Leftovers::Reason;

// While it lives, the process acts as an ordinary user, whoever runs the test.
class AsOrdinaryUser {
 public:
  AsOrdinaryUser() {
    constexpr uid_t kNobody = 65534;
    EXPECT_EQ(seteuid(user_ == 0 ? kNobody : user_), 0);
  }
  ~AsOrdinaryUser() { EXPECT_EQ(seteuid(user_), 0); }
  AsOrdinaryUser(const AsOrdinaryUser&) = delete;
  AsOrdinaryUser& operator=(const AsOrdinaryUser&) = delete;

 private:
  uid_t user_ = geteuid();
};

class MetadataCleanerTest : public ::testing::Test {
 protected:
  void Metadata(const std::string& photo, const std::string& file) {
    WriteFile(dir_.path() + "/@eaDir/" + photo + "/" + file, "thumb");
  }
  [[nodiscard]] bool Exists(const std::string& name) const {
    return fs::exists(dir_.path() + "/" + name);
  }

  testing::TempDir dir_;
};

TEST_F(MetadataCleanerTest, WithoutMetadataThereIsNothingToDo) {
  EXPECT_EQ(MetadataCleaner(dir_.path()).state(), State::kNoMetadata);
  const MetadataCleaner gone(dir_.path() + "/none");
  EXPECT_EQ(gone.state(), State::kFailed);
  EXPECT_EQ(gone.problem(), "No such file or directory");
}

TEST_F(MetadataCleanerTest, HoldsTheLockOfProgramsThatMakeThumbnails) {
  fs::create_directory(dir_.path() + "/@eaDir");
  const UniqueFd other(open((dir_.path() + "/@eaDir").c_str(), O_RDONLY | O_CLOEXEC));
  {
    const MetadataCleaner cleaner(dir_.path());
    EXPECT_EQ(cleaner.state(), State::kReady);
    EXPECT_NE(flock(other.get(), LOCK_EX | LOCK_NB), 0);
  }
  EXPECT_EQ(flock(other.get(), LOCK_EX | LOCK_NB), 0);
  EXPECT_EQ(MetadataCleaner(dir_.path()).state(), State::kLocked);
}

TEST_F(MetadataCleanerTest, APhotoThatComesBackKeepsItsMetadata) {
  Metadata("a.jpg", "KELDOPHOTO_THUMB_S.jpg");
  fs::create_directories(dir_.path() + "/@eaDir/b.jpg");
  MetadataCleaner cleaner(dir_.path());
  const std::vector<Leftovers> found = cleaner.Find();
  ASSERT_EQ(found.size(), 2U);
  EXPECT_EQ(found[0].reason, Reason::kPhotoGone);
  WriteFile(dir_.path() + "/a.jpg", "photo");
  WriteFile(dir_.path() + "/b.jpg", "photo");
  for (const Leftovers& leftovers : found) {
    const Removal removal = cleaner.Remove(leftovers);
    EXPECT_THAT(removal.files, ElementsAre());
    EXPECT_FALSE(removal.directory);
    EXPECT_EQ(removal.problem, "");
  }
  EXPECT_TRUE(Exists("@eaDir/a.jpg/KELDOPHOTO_THUMB_S.jpg"));
  EXPECT_TRUE(Exists("@eaDir/b.jpg"));
}

TEST_F(MetadataCleanerTest, KeepsAMarkerWhoseThumbnailIsGoneAgain) {
  WriteFile(dir_.path() + "/a.jpg", "photo");
  Metadata("a.jpg", "KELDOPHOTO_THUMB_S.fail");
  Metadata("a.jpg", "KELDOPHOTO_THUMB_S.jpg");
  MetadataCleaner cleaner(dir_.path());
  const std::vector<Leftovers> found = cleaner.Find();
  ASSERT_EQ(found.size(), 1U);
  EXPECT_EQ(found[0].reason, Reason::kStaleMarker);
  fs::remove(dir_.path() + "/@eaDir/a.jpg/KELDOPHOTO_THUMB_S.jpg");
  EXPECT_THAT(cleaner.Remove(found[0]).files, ElementsAre());
  EXPECT_TRUE(Exists("@eaDir/a.jpg/KELDOPHOTO_THUMB_S.fail"));
}

TEST_F(MetadataCleanerTest, KeepsWhatHasReplacedALeftover) {
  Metadata("a.jpg", "KELDOPHOTO_THUMB_S.jpg");
  MetadataCleaner cleaner(dir_.path());
  const std::vector<Leftovers> found = cleaner.Find();
  ASSERT_EQ(found.size(), 1U);
  const std::string file = dir_.path() + "/@eaDir/a.jpg/KELDOPHOTO_THUMB_S.jpg";
  fs::remove(file);
  fs::create_symlink("/etc/passwd", file);
  const Removal removal = cleaner.Remove(found[0]);
  EXPECT_THAT(removal.files, ElementsAre());
  EXPECT_FALSE(removal.directory);
  EXPECT_EQ(removal.problem, "");
  EXPECT_TRUE(fs::is_symlink(file));
}

TEST_F(MetadataCleanerTest, APhotoThatCannotBeExaminedIsNotGone) {
  Metadata("a.jpg", "KELDOPHOTO_THUMB_S.jpg");
  MetadataCleaner cleaner(dir_.path());
  chmod(dir_.path().c_str(), 0000);
  {
    const AsOrdinaryUser user;
    EXPECT_TRUE(cleaner.Find().empty());
  }
  chmod(dir_.path().c_str(), 0700);
  EXPECT_EQ(cleaner.problem(), "a.jpg: Permission denied");
}

TEST_F(MetadataCleanerTest, ReportsWhatCannotBeRemoved) {
  Metadata("a.jpg", "KELDOPHOTO_THUMB_S.jpg");
  MetadataCleaner cleaner(dir_.path());
  const std::vector<Leftovers> found = cleaner.Find();
  ASSERT_EQ(found.size(), 1U);
  chmod(dir_.path().c_str(), 0755);
  chmod((dir_.path() + "/@eaDir/a.jpg").c_str(), 0555);
  {
    const AsOrdinaryUser user;
    EXPECT_EQ(cleaner.Remove(found[0]).problem, "Permission denied");
  }
  chmod((dir_.path() + "/@eaDir/a.jpg").c_str(), 0755);
  EXPECT_TRUE(Exists("@eaDir/a.jpg/KELDOPHOTO_THUMB_S.jpg"));
}

TEST(MetadataNames, RecognisesKindsInBothSpellings) {
  EXPECT_EQ(WhatIs("KELDOPHOTO:THUMB_SM.jpg").file, MetadataFile::kThumbnail);
  EXPECT_EQ(WhatIs("KELDOPHOTO:THUMB_SM.jpg").kind, 5);
  EXPECT_EQ(WhatIs("KELDOPHOTO_THUMB_S.fail").file, MetadataFile::kMarker);
  EXPECT_EQ(WhatIs("KELDOPHOTO_THUMB_S.fail").kind, 0);
  EXPECT_EQ(WhatIs("KELDOPHOTO_THUMB_RAW.fail").file, MetadataFile::kForeign);
  EXPECT_EQ(WhatIs("magick-Ab3_-fGhIjKlMnOpQrStUvWxYz012345").file, MetadataFile::kTemporary);
  for (const char* name : {"magick-notes.txt", "magick-Ab3_-fGhIjKlMnOpQrStUvWxYz0123456",
                           "magick-Ab3_.fGhIjKlMnOpQrStUvWxYz012345"})
    EXPECT_EQ(WhatIs(name).file, MetadataFile::kForeign) << name;
}

TEST(MetadataNames, TemporariesMayHaveAPageNumber) {
  for (const char* name : {"KELDOPHOTO.tmp.Ab3dEf", "KELDOPHOTO.tmp.Ab3dEf.jpg",
                           "KELDOPHOTO.tmp.XXXXXX.jpg", "KELDOPHOTO.tmp.Ab3dEf-12.jpg"}) {
    EXPECT_EQ(WhatIs(name).file, MetadataFile::kTemporary) << name;
  }
}

}  // namespace
}  // namespace keldo::ctl
