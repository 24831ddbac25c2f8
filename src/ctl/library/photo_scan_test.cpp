#include "ctl/library/photo_scan.h"

#include "ctl/library/library_test_support.h"
#include "index/index_database.h"

namespace keldo::ctl {
namespace {

class PhotoScanTest : public LibraryTest {
 protected:
  PhotoState StateOf(const std::string& name) {
    const std::filesystem::path path = In(name);
    DirectoryState directory = PhotoScanner().Scan(path.parent_path().string());
    for (PhotoState& photo : directory.photos) {
      if (photo.name == path.filename()) return photo;
    }
    ADD_FAILURE() << "not found: " << name;
    return {};
  }
  static ThumbState Of(const PhotoState& photo, ThumbKind kind) {
    return photo.thumbs.at(static_cast<std::size_t>(kind));
  }
};

TEST_F(PhotoScanTest, APhotoWithoutMetadataLacksEverything) {
  Photo("a.jpg");
  const PhotoState photo = StateOf("a.jpg");
  EXPECT_EQ(photo.Count(ThumbState::kMissing), 6);
  EXPECT_TRUE(photo.IsUnfinished());
  EXPECT_FALSE(photo.IsFailed());
  EXPECT_EQ(photo.bytes, 5);
  EXPECT_EQ(photo.changed, kPhotoTime);
}

TEST_F(PhotoScanTest, AThumbnailIsCurrentFromItsPhotosSecondOn) {
  Photo("a.jpg");
  Thumbs("a.jpg", {"XL"}, 0);
  Thumbs("a.jpg", {"L"}, -1);
  Thumbs("a.jpg", {"B"}, 100);
  Write(Ea("a.jpg") + "/KELDOPHOTO_THUMB_M.jpg", "");
  const PhotoState photo = StateOf("a.jpg");
  EXPECT_EQ(Of(photo, THUMB_XL), ThumbState::kPresent);
  EXPECT_EQ(Of(photo, THUMB_L), ThumbState::kStale);
  EXPECT_EQ(Of(photo, THUMB_B), ThumbState::kPresent);
  EXPECT_EQ(Of(photo, THUMB_M), ThumbState::kStale) << "empty";
  EXPECT_EQ(Of(photo, THUMB_S), ThumbState::kMissing);
}

TEST_F(PhotoScanTest, TheColonSpellingCountsWhereTheOtherIsMissing) {
  Photo("a.jpg");
  Write(Ea("a.jpg") + "/KELDOPHOTO:THUMB_S.jpg", "thumbnail");
  Thumbs("a.jpg", {"M"}, -1);
  Write(Ea("a.jpg") + "/KELDOPHOTO:THUMB_M.jpg", "thumbnail");
  const PhotoState photo = StateOf("a.jpg");
  EXPECT_EQ(Of(photo, THUMB_S), ThumbState::kPresent);
  EXPECT_EQ(Of(photo, THUMB_M), ThumbState::kStale);
}

TEST_F(PhotoScanTest, AMarkerMeansFailureUntilThePhotoChanges) {
  Photo("a.jpg");
  Thumbs("a.jpg", {"S"});
  Markers("a.jpg", {"XL", "S"});
  PhotoState photo = StateOf("a.jpg");
  EXPECT_EQ(Of(photo, THUMB_XL), ThumbState::kFailed);
  EXPECT_EQ(Of(photo, THUMB_S), ThumbState::kPresent) << "what is there is there";
  EXPECT_TRUE(photo.IsFailed());
  EXPECT_FALSE(photo.IsUnfinished());
  EXPECT_NEAR(static_cast<double>(photo.failed_at), static_cast<double>(time(nullptr)), 60);

  // A change that the clock of the file system can tell from the time of the marker.
  struct stat changed {};
  struct stat marker {};
  ASSERT_EQ(stat((Ea("a.jpg") + "/KELDOPHOTO_THUMB_XL.fail").c_str(), &marker), 0);
  do {
    ASSERT_EQ(chmod(In("a.jpg").c_str(), 0600), 0);
    ASSERT_EQ(stat(In("a.jpg").c_str(), &changed), 0);
  } while (!IsMarkerOutdated(changed, marker));
  photo = StateOf("a.jpg");
  EXPECT_EQ(Of(photo, THUMB_XL), ThumbState::kMissing);
  EXPECT_FALSE(photo.IsFailed());
  EXPECT_EQ(photo.failed_at, 0);
}

TEST_F(PhotoScanTest, ComparesMarkerTimesToTheNanosecond) {
  struct stat photo {};
  struct stat marker {};
  photo.st_ctim = {5, 100};
  marker.st_ctim = {5, 100};
  EXPECT_FALSE(IsMarkerOutdated(photo, marker));
  photo.st_ctim = {5, 101};
  EXPECT_TRUE(IsMarkerOutdated(photo, marker));
  marker.st_ctim = {6, 0};
  EXPECT_FALSE(IsMarkerOutdated(photo, marker));
}

TEST_F(PhotoScanTest, ListsOnlyPhotosInByteOrderWhateverTheirNames) {
  const Texts names{"%s[1]*.jpg", "-a.jpg", "@x.jpg", "b\nc.jpg", "\xFF.jpg"};
  for (const std::string& name : names) {
    Photo(name);
    AllThumbs(name);
  }
  Photo("notes.txt");
  Photo("._a.jpg");
  std::filesystem::create_directory(In("folder.jpg"));
  const DirectoryState state = PhotoScanner().Scan(root_);
  ASSERT_EQ(state.photos.size(), names.size());
  for (std::size_t i = 0; i < names.size(); ++i) {
    EXPECT_EQ(state.photos[i].name, names[i]);
    EXPECT_EQ(state.photos[i].Count(ThumbState::kPresent), 6) << names[i];
    EXPECT_EQ(PathOf(state, state.photos[i]), In(names[i]));
  }
}

TEST_F(PhotoScanTest, AMissingDirectoryHasNoPhotos) {
  EXPECT_TRUE(PhotoScanner().Scan(In("none")).photos.empty());
}

TEST_F(PhotoScanTest, WantsKindsThatBothProfileAndIndexAskFor) {
  Photo("a.jpg");
  const std::string profile = dir_.path() + "/thumb.conf";
  Write(profile,
        "[thumb_s]\nfilename=KELDOPHOTO_THUMB_S.jpg\n[thumb_m]\nfilename=KELDOPHOTO:THUMB_M.jpg\n"
        "[other]\nfilename=KELDOPHOTO_THUMB_L.jpg\n");
  EXPECT_EQ(PhotoScanner(profile).WantedKinds(root_), 1 << THUMB_S | 1 << THUMB_M);

  index::UseIndexAt(environment_.database_path);
  auto index = index::IndexDatabase::OpenOrCreate(environment_.database_path);
  ASSERT_TRUE(index.database) << index.problem;
  ASSERT_TRUE(index.database->SetMask(root_, 1, 1 << THUMB_S | 1 << THUMB_XL));
  PhotoScanner scanner(profile);
  EXPECT_EQ(scanner.WantedKinds(root_), 1 << THUMB_S);
  EXPECT_EQ(scanner.WantedKinds(dir_.path()), 1 << THUMB_S | 1 << THUMB_M) << "above the mask";
  EXPECT_EQ(PhotoScanner().WantedKinds(root_), 1 << THUMB_S | 1 << THUMB_XL);
  const DirectoryState state = scanner.Scan(root_);
  EXPECT_EQ(state.photos.at(0).Count(ThumbState::kMissing), 1);
  EXPECT_EQ(state.photos.at(0).Count(ThumbState::kUnwanted), 5);
}

TEST_F(PhotoScanTest, CountsAddUp) {
  Photo("a.jpg");
  AllThumbs("a.jpg");
  Photo("b.jpg");
  Thumbs("b.jpg", {"S"}, -1);
  Photo("c.jpg");
  Markers("c.jpg", {"XL", "L"});
  LibraryCounts counts;
  counts.Add(CountsOf(PhotoScanner().Scan(root_)));
  counts.Add(CountsOf(PhotoScanner().Scan(root_)));
  EXPECT_EQ(counts.photos, 6);
  EXPECT_EQ(counts.failed_photos, 2);
  EXPECT_EQ(counts.unfinished_photos, 2);
  EXPECT_EQ(counts.Thumbs(ThumbState::kPresent), 12);
  EXPECT_EQ(counts.Thumbs(ThumbState::kStale), 2);
  EXPECT_EQ(counts.Thumbs(ThumbState::kFailed), 4);
  EXPECT_EQ(counts.Thumbs(ThumbState::kMissing), 18);
  EXPECT_EQ(counts.Thumbs(THUMB_XL, ThumbState::kFailed), 2);
  EXPECT_EQ(counts.Thumbs(THUMB_S, ThumbState::kPresent), 2);
}

TEST_F(PhotoScanTest, AProfileIsUsableWhenItParsesAndHasAThumbnail) {
  const std::string profile = dir_.path() + "/p.conf";
  EXPECT_FALSE(IsUsableProfile(profile));
  Write(profile, "# nothing\n");
  EXPECT_FALSE(IsUsableProfile(profile));
  Write(profile, "rubbish\n");
  EXPECT_FALSE(IsUsableProfile(profile));
  Write(profile, "[thumb_s]\nsize=120\n");
  EXPECT_TRUE(IsUsableProfile(profile));
}

TEST_F(PhotoScanTest, IsNotFinishedWhenSomethingCannotBeRead) {
  Photo("a.jpg");
  AllThumbs("a.jpg");
  EXPECT_TRUE(PhotoScanner().Scan(root_).IsFinished());
  EXPECT_EQ(PhotoScanner().Scan(root_).error, 0);
  const DirectoryState gone = PhotoScanner().Scan(In("none"));
  EXPECT_EQ(gone.error, ENOENT);
  EXPECT_FALSE(gone.IsFinished());
  Photo("b.jpg");
  EXPECT_FALSE(PhotoScanner().Scan(root_).IsFinished());
  Markers("b.jpg", {"XL"});
  EXPECT_TRUE(PhotoScanner().Scan(root_).IsFinished()) << "a failure is an end";
  std::filesystem::create_symlink("nowhere", In("dangling.jpg"));
  EXPECT_EQ(PhotoScanner().Scan(root_).error, 0);
  // A link to a name that no file can have cannot be read.
  std::filesystem::create_symlink(std::string(300, 'x'), In("long.jpg"));
  EXPECT_EQ(PhotoScanner().Scan(root_).error, ENAMETOOLONG);
}

}  // namespace
}  // namespace keldo::ctl
