#include <fcntl.h>
#include <sys/file.h>
#include <syslog.h>

#include <cerrno>

#include "run/thumb_job.h"
#include "support/job_test.h"
#include "util/handles.h"

namespace keldo::testing {
namespace {

class DirectoryJobTest : public JobTest {
 protected:
  void Run() const { RunThumbJob(job_); }

  // True when nobody holds the directory's lock.
  [[nodiscard]] bool IsUnlocked() const {
    const UniqueFd directory(open(metadata_dir_.c_str(), O_RDONLY | O_CLOEXEC));
    return flock(directory.get(), LOCK_EX | LOCK_NB) == 0;
  }

  const std::string metadata_dir_ = job_.path + "/@eaDir";
};

// ---- Photos and the queue ----

TEST_F(DirectoryJobTest, PhotosAreDoneInTheOrderOfTheirNames) {
  const std::string b = Photo("b.png");
  const std::string a = Photo("a.png");
  const std::string z = Photo("Z.png");
  Run();
  EXPECT_EQ(Packets(), (Texts{"GET_INDEX_VERSION " + z, "POST_PHOTO_CONVERT " + z,
                              "GET_INDEX_VERSION " + a, "POST_PHOTO_CONVERT " + a,
                              "GET_INDEX_VERSION " + b, "POST_PHOTO_CONVERT " + b}));
  EXPECT_EQ(Mode(metadata_dir_), 0777u);
  EXPECT_EQ(fake().CallsOf({"LetTerminationIn"}).size(), 3u);
  ExpectNoLog();
}

TEST_F(DirectoryJobTest, ADirectoryWithWorkLeftIsQueuedOnce) {
  Photo("a.png");
  Photo("b.png");
  Run();
  EXPECT_EQ(fake().CallsOf({"WriteIndexQueue"}),
            (Texts{"WriteIndexQueue(" + job_.path + ", /var/spool/thumb_create.queue)"}));
  EXPECT_EQ(fake().calls.back(), fake().CallsOf({"WriteIndexQueue"}).at(0));
  EXPECT_EQ(Queue(), (Texts{job_.path}));
  EXPECT_EQ(Progress(), (Texts{"completed_thumb=10"}));
}

TEST_F(DirectoryJobTest, APhotoThatIsFinishedLeavesTheDirectoryQueuedForTheOthers) {
  Photo("a.png");
  Photo("b.png");
  MakeThumbs("b.png", {"XL", "B", "M", "L", "SM"});
  Run();
  EXPECT_EQ(Made("b.png"), (Texts{"XL", "B", "M", "L", "SM", "S"}));
  EXPECT_EQ(Queue(), (Texts{job_.path}));
}

TEST_F(DirectoryJobTest, TheNextRunFinishesWhatWasDeferredAndAThirdDoesNothing) {
  const std::string photo = Photo("a.png");
  Run();
  fake().calls.clear();
  fake().runs.clear();
  Run();
  EXPECT_EQ(Made("a.png"), (Texts{"XL", "B", "M", "L", "SM", "S"}));
  EXPECT_EQ(LargestBoxes(), (Texts{"120x120>"}));
  EXPECT_TRUE(fake().CallsOf({"WriteIndexQueue"}).empty());
  EXPECT_EQ(Progress(), (Texts{"completed_thumb=6", "completed=1"}));
  fake().runs.clear();
  fake().packets.clear();
  Run();
  EXPECT_TRUE(fake().runs.empty());
  EXPECT_TRUE(fake().popens.empty());
  EXPECT_EQ(Packets(), (Texts{"POST_PHOTO_CONVERT " + photo}));
}

TEST_F(DirectoryJobTest, AFailedPhotoDoesNotStopOthersAndQueuesNothing) {
  Photo("a.png");
  Photo("b.png");
  fake().on_run = [&](const Command& command) {
    return command.at(4).ends_with("a.png") ? 1 : WriteOutputs(command);
  };
  MakeThumbs("b.png", {"XL", "B", "M", "L", "SM"});
  Run();
  EXPECT_EQ(Marked("a.png"), (Texts{"XL", "B", "M", "L", "SM", "S"}));
  EXPECT_EQ(Made("b.png"), (Texts{"XL", "B", "M", "L", "SM", "S"}));
  EXPECT_TRUE(fake().CallsOf({"WriteIndexQueue"}).empty());
}

TEST_F(DirectoryJobTest, AQueueThatCannotBeWrittenIsLogged) {
  Photo("a.png");
  fake().FailCall("WriteIndexQueue");
  Run();
  ExpectOneLog(LOG_ERR, "keldothumb:1169 Failed to write [" + job_.path + "] to thumb queue");
}

// ---- Nothing to do ----

TEST_F(DirectoryJobTest, ADirectoryWithoutPhotosStaysAsItIs) {
  WriteFile(job_.path + "/notes.txt", "x");
  Run();
  EXPECT_FALSE(Exists(metadata_dir_));
  EXPECT_EQ(fake().calls, Texts{});
  ExpectNoLog();
}

TEST_F(DirectoryJobTest, AFileHasNoPhotos) {
  const std::string file = WriteFile(In("a.png"), "x");
  RunThumbJob({file, &profiles_});
  ExpectOneLog(LOG_ERR, "keldothumb:703 [Error] opendir: " + file);
  EXPECT_EQ(fake().calls, Texts{});
}

// ---- The volume fills up ----

TEST_F(DirectoryJobTest, AFullVolumeEndsTheDirectoryButItIsStillQueued) {
  Photo("a.png");
  const std::string second = Photo("b.png");
  Photo("c.png");
  fake().on_run = [&](const Command& command) {
    fake().default_free_bytes = 1073741823;
    return WriteOutputs(command);
  };
  Run();
  EXPECT_EQ(Made("a.png"), (Texts{"XL", "B", "M", "L", "SM"}));
  ExpectOneLog(LOG_ERR,
               "keldothumb:969 Stopping creating thumbs as the disk space is near full, " + second);
  EXPECT_TRUE(Exists(Ea("b.png")));
  EXPECT_FALSE(Exists(Ea("c.png")));
  EXPECT_EQ(Queue(), (Texts{job_.path}));
  EXPECT_TRUE(IsUnlocked());
}

TEST_F(DirectoryJobTest, CurrentPhotosNeedNoSpace) {
  const std::string current = Photo("a.png");
  MakeThumbs("a.png", {"XL", "B", "M", "L", "SM", "S"});
  Photo("b.png");
  fake().default_free_bytes = 0;
  Run();
  EXPECT_EQ(Packets(), (Texts{"POST_PHOTO_CONVERT " + current}));
  EXPECT_EQ(fake().CallsOf({"KLIBGetFsAvailSize"}).size(), 1u);
  EXPECT_TRUE(fake().CallsOf({"WriteIndexQueue"}).empty());
}

// ---- The lock ----

TEST_F(DirectoryJobTest, TheDirectoryIsLockedWhileItsPhotosAreDone) {
  Photo("a.png");
  int runs_under_lock = 0;
  fake().on_run = [&](const Command& command) {
    if (!IsUnlocked()) ++runs_under_lock;
    return WriteOutputs(command);
  };
  Run();
  EXPECT_EQ(runs_under_lock, 2);
  EXPECT_TRUE(IsUnlocked());
}

TEST_F(DirectoryJobTest, ADirectoryLockedByAnotherRunIsSkipped) {
  Photo("a.png");
  MakeDir(metadata_dir_);
  const UniqueFd other(open(metadata_dir_.c_str(), O_RDONLY | O_CLOEXEC));
  ASSERT_EQ(flock(other.get(), LOCK_EX | LOCK_NB), 0);
  Run();
  ExpectOneLog(LOG_ERR, "keldothumb:925 Failed to lock " + metadata_dir_);
  EXPECT_EQ(fake().calls, Texts{});
  EXPECT_FALSE(Exists(Ea("a.png")));
  // Giving up does not release the lock of the other run.
  EXPECT_FALSE(IsUnlocked());
}

TEST_F(DirectoryJobTest, ALockThatCannotBeOpenedSkipsTheDirectory) {
  Photo("a.png");
  fake().FailCall("open", 1, EMFILE);
  Run();
  ExpectOneLog(LOG_ERR, "keldothumb:920 Failed to open " + metadata_dir_);
  EXPECT_EQ(fake().calls, Texts{});
}

TEST_F(DirectoryJobTest, TheLockEndsWithItsHolder) {
  MakeDir(metadata_dir_);
  {
    const DirectoryLock lock(metadata_dir_);
    EXPECT_TRUE(lock.held());
    EXPECT_FALSE(IsUnlocked());
    const DirectoryLock second(metadata_dir_);
    EXPECT_FALSE(second.held());
  }
  EXPECT_TRUE(IsUnlocked());
  const DirectoryLock none(In("none"));
  EXPECT_FALSE(none.held());
}

// ---- The metadata directory ----

TEST_F(DirectoryJobTest, AMetadataDirectoryThatCannotBeMadeSkipsTheDirectory) {
  Photo("a.png");
  fake().FailCall("mkdir", 1, EACCES);
  Run();
  ExpectOneLog(LOG_ERR, "keldothumb:507 keldothumb: checkCreateDir(507) - mkdir(" + metadata_dir_ +
                            ", 0777 ), errno: 13\n");
  EXPECT_EQ(fake().calls, Texts{});
}

TEST_F(DirectoryJobTest, APhotoWhoseMetadataDirectoryCannotBeMadeIsSkipped) {
  Photo("a.png");
  Photo("b.png");
  MakeDir(metadata_dir_);
  fake().FailCall("mkdir", 1, ENOSPC);
  Run();
  ExpectOneLog(LOG_ERR, "keldothumb:507 keldothumb: checkCreateDir(507) - mkdir(" + Ea("a.png") +
                            ", 0777 ), errno: 28\n");
  EXPECT_EQ(Made("b.png"), (Texts{"XL", "B", "M", "L", "SM"}));
}

TEST_F(DirectoryJobTest, AnyBytesOfANameWork) {
  const Texts names{"-a \"'@%[1]*\n\xff.png", "a*.png", "%s.png"};
  for (const std::string& name : names)
    Photo(name);
  Run();
  for (const std::string& name : names) {
    EXPECT_EQ(Made(name), (Texts{"XL", "B", "M", "L", "SM"})) << name;
  }
  ExpectNoLog();
}

}  // namespace
}  // namespace keldo::testing
