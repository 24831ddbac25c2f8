#include "ctl/make/maker.h"

#include <fcntl.h>
#include <sys/eventfd.h>
#include <sys/file.h>
#include <unistd.h>

#include <csignal>

#include "ctl/library/library_test_support.h"
#include "util/handles.h"

namespace keldo::ctl {
namespace {

using ::testing::ElementsAre;

// A shell script stands in for keldothumb. $1 is the profile file, $2 the directory, and $turn
// counts the runs on this directory so far. "make PHOTO KIND..." makes thumbnails.
constexpr const char* kScriptHead = R"sh(#!/bin/sh
log=$(dirname "$0")/log
name=$(basename "$2")
echo "$name" >>"$log"
turn=$(grep -cx "$name" "$log")
make() {
  photo=$1; shift
  mkdir -p "$folder/@eaDir/$photo"
  for kind; do echo x >"$folder/@eaDir/$photo/KELDOPHOTO_THUMB_$kind.jpg"; done
}
fail() {
  mkdir -p "$folder/@eaDir/$1"
  for kind in S SM M B L XL; do : >"$folder/@eaDir/$1/KELDOPHOTO_THUMB_$kind.fail"; done
}
folder=$2
)sh";
// Like keldothumb, makes all kinds but the smallest in the first run, and the smallest in the
// second.
constexpr const char* kTwoPhases = R"sh(
for path in "$folder"/*.jpg; do
  photo=$(basename "$path")
  if [ "$turn" = 1 ]; then make "$photo" XL L B M SM; else make "$photo" S; fi
done
)sh";

class MakerTest : public LibraryTest {
 protected:
  MakerTest() {
    options_.keldothumb = environment_.keldothumb;
    options_.profile_path = "/profile";
    options_.locked_again_after = std::chrono::milliseconds(100);
    Program(kTwoPhases);
  }

  void Program(const std::string& script) {
    Write(options_.keldothumb, kScriptHead + script);
    ASSERT_EQ(chmod(options_.keldothumb.c_str(), 0755), 0);
  }

  MakeOutcome Make(const Texts& names, int stop_fd = -1) {
    std::vector<DirectoryState> directories;
    for (const std::string& name : names)
      directories.push_back(scanner_.Scan(In(name)));
    Maker maker(options_, scanner_, stop_fd, [this](const MakeProgress& progress) {
      if (on_report_) on_report_(progress);
    });
    return maker.Run(std::move(directories));
  }

  // The names of the directories on which the program was run, in order.
  [[nodiscard]] Texts Turns() const { return LinesOf(dir_.path() + "/log"); }
  static Texts LinesOf(const std::string& path) {
    std::ifstream file(path);
    Texts lines;
    for (std::string line; std::getline(file, line);)
      lines.push_back(line);
    return lines;
  }

  PhotoScanner scanner_;
  MakeOptions options_;
  Maker::Report on_report_;
};

TEST_F(MakerTest, RunsADirectoryUntilNothingIsMissing) {
  Photo("trip/a.jpg");
  Photo("trip/b.jpg");
  const MakeOutcome outcome = Make({"trip"});
  EXPECT_THAT(Turns(), ElementsAre("trip", "trip"));
  EXPECT_EQ(outcome.progress.photos_total, 2);
  EXPECT_EQ(outcome.progress.photos_done, 2);
  EXPECT_EQ(outcome.progress.photos_failed, 0);
  EXPECT_EQ(outcome.progress.thumbs_total, 12);
  EXPECT_EQ(outcome.progress.thumbs_made, 12);
  EXPECT_EQ(CountsOf(outcome.directories.at(0)).Thumbs(ThumbState::kPresent), 12);
  EXPECT_FALSE(outcome.stopped);
  EXPECT_EQ(outcome.problem, "");
}

TEST_F(MakerTest, SkipsDirectoriesThatAreCompleteOrHaveFailed) {
  Photo("done/a.jpg");
  AllThumbs("done/a.jpg");
  Photo("bad/b.jpg");
  Markers("bad/b.jpg", {"XL"});
  const MakeOutcome outcome = Make({"done", "bad"});
  EXPECT_THAT(Turns(), ElementsAre());
  EXPECT_EQ(outcome.directories.size(), 2U);
  EXPECT_EQ(outcome.progress.photos_total, 0);
}

TEST_F(MakerTest, DoesNotRetryAPhotoThatFails) {
  Photo("trip/a.jpg");
  Photo("trip/bad.jpg");
  Program("make a.jpg S SM M B L XL; fail bad.jpg");
  const MakeOutcome outcome = Make({"trip"});
  EXPECT_THAT(Turns(), ElementsAre("trip"));
  EXPECT_EQ(outcome.progress.photos_done, 1);
  EXPECT_EQ(outcome.progress.photos_failed, 1);
  EXPECT_TRUE(outcome.directories.at(0).photos.at(1).IsFailed());
}

TEST_F(MakerTest, StopsAfterARunWithoutProgress) {
  Photo("trip/a.jpg");
  Photo("trip/b.jpg");
  Program("make a.jpg S SM M B L XL");
  const MakeOutcome outcome = Make({"trip"});
  EXPECT_THAT(Turns(), ElementsAre("trip", "trip"));
  EXPECT_TRUE(outcome.directories.at(0).photos.at(1).IsUnfinished());
}

TEST_F(MakerTest, RendersAndCountsStaleThumbnails) {
  Photo("trip/a.jpg");
  AllThumbs("trip/a.jpg");
  Thumbs("trip/a.jpg", {"XL"}, -1);
  EXPECT_EQ(Make({"trip"}).progress.thumbs_made, 1);
  EXPECT_THAT(Turns(), ElementsAre("trip"));
}

TEST_F(MakerTest, StartsWithTheLargestDirectory) {
  Photo("small/a.jpg");
  for (const char* name : {"large/a.jpg", "large/b.jpg", "large/c.jpg"})
    Photo(name);
  Photo("middle/a.jpg");
  Photo("middle/b.jpg");
  Program(R"sh(for path in "$folder"/*.jpg; do make "$(basename "$path")" S SM M B L XL; done)sh");
  Make({"small", "large", "middle"});
  EXPECT_THAT(Turns(), ElementsAre("large", "middle", "small"));
}

TEST_F(MakerTest, RunsAsManyAtOnceAsThereAreJobs) {
  for (const char* name : {"a/a.jpg", "b/a.jpg", "c/a.jpg"})
    Photo(name);
  // Each run waits until there is a second one and writes how many there are. One at a time would
  // be too few, and more than two would be too many.
  Program(R"sh(
here=$(dirname "$0"); : >"$here/running.$name"
for i in $(seq 200); do
  count=$(ls "$here" | grep -c '^running'); [ "$count" -ge 2 ] && break; sleep 0.01
done
ls "$here" | grep -c '^running' >>"$here/counts"
sleep 0.1
make a.jpg S SM M B L XL
[ "$name" = c ] || rm "$here/running.$name"
)sh");
  options_.jobs = 2;
  Make({"a", "b", "c"});
  const Texts counts = LinesOf(dir_.path() + "/counts");
  ASSERT_EQ(counts.size(), 3U);
  EXPECT_EQ(counts.at(0), "2");
  EXPECT_EQ(counts.at(1), "2");
}

TEST_F(MakerTest, SharesTheProcessorsAmongTheRuns) {
  Photo("a/a.jpg");
  Photo("b/a.jpg");
  Program(R"sh(echo "$MAGICK_THREAD_LIMIT $OMP_NUM_THREADS" >>"$(dirname "$0")/threads"
make a.jpg S SM M B L XL)sh");
  options_.jobs = 4;
  Make({"a"});
  EXPECT_THAT(LinesOf(dir_.path() + "/threads"), ElementsAre("4 4"));
  std::filesystem::remove_all(In("a/@eaDir"));
  std::filesystem::remove(dir_.path() + "/threads");
  Make({"a", "b"});
  EXPECT_THAT(LinesOf(dir_.path() + "/threads"), ElementsAre("2 2", "2 2"));
}

TEST_F(MakerTest, NiceRunsHaveTheLowestPriority) {
  Photo("a/a.jpg");
  Program(R"sh(sleep 0.2; nice >"$(dirname "$0")/nice"; ionice >>"$(dirname "$0")/nice"
make a.jpg S SM M B L XL)sh");
  options_.nice = true;
  Make({"a"});
  EXPECT_THAT(LinesOf(dir_.path() + "/nice"), ElementsAre("19", "idle"));
}

TEST_F(MakerTest, RetriesALockedDirectoryLater) {
  Photo("a/a.jpg");
  std::filesystem::create_directory(In("a/@eaDir"));
  UniqueFd lock(open(In("a/@eaDir").c_str(), O_RDONLY | O_CLOEXEC));
  ASSERT_EQ(flock(lock.get(), LOCK_EX | LOCK_NB), 0);
  // Like keldothumb, does nothing if it cannot get the lock.
  Program(R"sh(flock -n "$folder/@eaDir" true || exit 0; make a.jpg S SM M B L XL)sh");
  on_report_ = [&](const MakeProgress& /*progress*/) { lock.reset(); };
  const MakeOutcome outcome = Make({"a"});
  EXPECT_EQ(outcome.progress.photos_done, 1);
  EXPECT_THAT(Turns(), ElementsAre("a", "a"));
}

TEST_F(MakerTest, ReportsAProgramThatCannotBeStarted) {
  Photo("a/a.jpg");
  options_.keldothumb = In("none");
  const MakeOutcome outcome = Make({"a"});
  EXPECT_EQ(outcome.problem, In("none") + " cannot be started: No such file or directory");
  EXPECT_EQ(outcome.progress.photos_done, 0);
}

TEST_F(MakerTest, AStopKillsTheChildrenAndIsReported) {
  Photo("a/a.jpg");
  Photo("b/a.jpg");
  Program(R"sh(echo $$ >>"$(dirname "$0")/pids"; exec sleep 1000)sh");
  const UniqueFd stop(eventfd(0, EFD_CLOEXEC));
  on_report_ = [&](const MakeProgress& /*progress*/) {
    if (!LinesOf(dir_.path() + "/pids").empty()) eventfd_write(stop.get(), 1);
  };
  const auto begin = std::chrono::steady_clock::now();
  const MakeOutcome outcome = Make({"a", "b"}, stop.get());
  EXPECT_TRUE(outcome.stopped);
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(30));
  const Texts pids = LinesOf(dir_.path() + "/pids");
  ASSERT_EQ(pids.size(), 1U) << "the second directory waited for its turn";
  EXPECT_EQ(kill(std::stoi(pids.at(0)), 0), -1);
  EXPECT_EQ(errno, ESRCH);
}

TEST_F(MakerTest, PassesAnyDirectoryNameUnchanged) {
  const std::string name = "-R:a b\n%s[1]*'\"\xFF";
  Photo(name + "/a.jpg");
  Program(R"sh(make a.jpg S SM M B L XL)sh");
  EXPECT_EQ(Make({name}).progress.photos_done, 1);
}

TEST_F(MakerTest, ReportsAProgramThatCrashes) {
  Photo("a/a.jpg");
  Photo("b/a.jpg");
  Program(R"sh(make a.jpg S SM M B L XL; [ "$name" = b ] || kill -SEGV $$)sh");
  const MakeOutcome outcome = Make({"a", "b"});
  ASSERT_EQ(outcome.troubles.size(), 1U);
  EXPECT_EQ(outcome.troubles[0].directory, In("a"));
  EXPECT_EQ(outcome.troubles[0].text, "keldothumb was killed by signal 11 (Segmentation fault)");
}

}  // namespace
}  // namespace keldo::ctl
