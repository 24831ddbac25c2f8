#include <json/value.h>
#include <sys/file.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include "ctl/library/library_test_support.h"
#include "ctl/library/work_queue_file.h"
#include "util/handles.h"
#include "util/json_line.h"

namespace keldo::ctl {
namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

const std::string kOdd("-x %s [1]\xFF");

class QueueCommands : public LibraryTest {
 protected:
  QueueCommands() {
    Write(profile_, "[thumb_s]\nsize=120\nfilename=KELDOPHOTO_THUMB_S.jpg\n");
    // Makes the thumbnails of one directory and queues it again, as a run does that has deferred a
    // phase.
    Program(
        "for photo in \"$2\"/*.jpg; do d=\"$2/@eaDir/${photo##*/}\"; mkdir -p \"$d\"\n"
        "echo x >\"$d/KELDOPHOTO_THUMB_S.jpg\"; done; echo \"$2\" >>'" +
        paths_.waiting + "'");
    environment_.queue = paths_;
  }
  void Program(const std::string& script) const {
    Write(environment_.keldothumb, "#!/bin/sh\n" + script + "\n");
    ASSERT_EQ(chmod(environment_.keldothumb.c_str(), 0755), 0);
  }
  void Queue(const Texts& entries) const {
    std::string text;
    for (const std::string& entry : entries)
      text += entry + "\n";
    Write(paths_.waiting, text);
  }
  int RunIt(Texts options = {}) {
    options.insert(options.begin(), {"queue", "run", "--profile", profile_, "-j", jobs_});
    return Status(options);
  }
  int List(const Texts& options = {}) {
    Texts arguments{"queue", "list"};
    arguments.insert(arguments.end(), options.begin(), options.end());
    return Status(arguments);
  }
  [[nodiscard]] bool IsMade(const std::string& photo) const {
    return fs::exists(Ea(photo) + "/KELDOPHOTO_THUMB_S.jpg");
  }
  [[nodiscard]] Texts Waiting() const { return *ReadQueue(paths_.waiting); }

  const QueuePaths paths_{dir_.path() + "/queue", dir_.path() + "/queue.tmp",
                          dir_.path() + "/lock"};
  const std::string profile_ = dir_.path() + "/thumb.conf";
  std::string jobs_ = "2";
};

TEST_F(QueueCommands, ListsWhatIsWaitingAndWhatIsInWork) {
  EXPECT_EQ(List(), 0);
  EXPECT_EQ(output_, "The queue is empty.\n");
  Queue({"/v/a", "/v/" + kOdd + "\t"});
  Write(paths_.in_work, "/v/c\n");
  EXPECT_EQ(List(), 0);
  EXPECT_EQ(output_, "in work  /v/c\nwaiting  /v/a\nwaiting  /v/-x %s [1]\\xff\\t\n");

  EXPECT_EQ(List({"--json"}), 0);
  Json::Value value;
  ASSERT_TRUE(ParseJsonObject(output_, value));
  EXPECT_EQ(value["in_work"][0]["path"], "/v/c");
  EXPECT_EQ(value["waiting"].size(), 2U);
  EXPECT_TRUE(value["waiting"][1].isMember("path_bytes"));
}

TEST_F(QueueCommands, AQueueThatCannotBeReadIsAFailure) {
  fs::create_directory(paths_.in_work);
  EXPECT_EQ(List(), 1);
  EXPECT_EQ(errors_, "keldothumbctl: " + paths_.in_work + ": Is a directory\n");
  EXPECT_EQ(RunIt(), 1);
  EXPECT_EQ(errors_, "keldothumbctl: " + paths_.in_work + ": Is a directory\n");
}

TEST_F(QueueCommands, DoesTheWorkInTheQueue) {
  Photo("a/x.jpg");
  Photo("a/below/y.jpg");
  Photo(kOdd + "/z.jpg");
  Queue({In("a"), In(kOdd) + "/"});
  EXPECT_EQ(RunIt(), 0) << errors_;
  EXPECT_TRUE(IsMade("a/x.jpg"));
  EXPECT_TRUE(IsMade(kOdd + "/z.jpg"));
  EXPECT_FALSE(IsMade("a/below/y.jpg"));
  EXPECT_THAT(output_, HasSubstr("Photos:     2 in 2 folders\nThumbnails: 2 made"));
  EXPECT_THAT(Waiting(), ElementsAre());
  EXPECT_FALSE(fs::exists(paths_.in_work));
}

TEST_F(QueueCommands, AnEntryMayNameAWholeTree) {
  Photo("a/x.jpg");
  Photo("a/below/y.jpg");
  Queue({"R:" + In("a")});
  EXPECT_EQ(RunIt(), 0) << errors_;
  EXPECT_TRUE(IsMade("a/x.jpg"));
  EXPECT_TRUE(IsMade("a/below/y.jpg"));
  EXPECT_THAT(Waiting(), ElementsAre());
}

TEST_F(QueueCommands, AcceptsAnEmptyQueue) {
  EXPECT_EQ(RunIt(), 0);
  EXPECT_EQ(output_, "The queue is empty.\n");
  EXPECT_EQ(RunIt({"--json"}), 0);
  Json::Value value;
  ASSERT_TRUE(ParseJsonObject(output_, value)) << output_;
  EXPECT_EQ(value["photos"], 0);
  EXPECT_FALSE(fs::exists(paths_.in_work));
}

TEST_F(QueueCommands, DropsEntriesThatAreNotDirectories) {
  Photo("a/x.jpg");
  Queue({In("gone"), In("a/x.jpg"), "relative", In("a")});
  EXPECT_EQ(RunIt(), 0);
  const std::string end = "; removed from the queue\n";
  EXPECT_EQ(errors_, "keldothumbctl: " + In("gone") + ": No such file or directory" + end +
                         "keldothumbctl: " + In("a/x.jpg") + ": not a directory" + end +
                         "keldothumbctl: relative: not an absolute path" + end);
  EXPECT_TRUE(IsMade("a/x.jpg"));
  EXPECT_THAT(Waiting(), ElementsAre());
}

TEST_F(QueueCommands, KeepsWhatCannotBeFinished) {
  Photo("a/x.jpg");
  Photo("b/y.jpg");
  AllThumbs("b/y.jpg");
  Queue({In("a"), In("b")});
  Program("exit 1");
  EXPECT_EQ(RunIt(), 1);
  EXPECT_THAT(output_, HasSubstr("Not finished:\n  " + In("a/x.jpg")));
  EXPECT_THAT(Waiting(), ElementsAre(In("a")));
  EXPECT_FALSE(fs::exists(paths_.in_work));
}

TEST_F(QueueCommands, RemovesWhatHasFailed) {
  Photo("a/x.jpg");
  Queue({In("a")});
  Program("mkdir -p \"$2/@eaDir/x.jpg\"; : >\"$2/@eaDir/x.jpg/KELDOPHOTO_THUMB_S.fail\"");
  EXPECT_EQ(RunIt(), 1);
  EXPECT_THAT(output_, HasSubstr("Failed:\n  " + In("a/x.jpg")));
  EXPECT_THAT(Waiting(), ElementsAre());
}

TEST_F(QueueCommands, KeepsEverythingWithoutTheProgram) {
  Photo("a/x.jpg");
  Photo("b/y.jpg");
  Queue({In("a"), In("b")});
  fs::remove(environment_.keldothumb);
  EXPECT_EQ(RunIt(), 1);
  EXPECT_THAT(errors_, HasSubstr("cannot be started: No such file or directory"));
  EXPECT_THAT(Waiting(), ElementsAre(In("a"), In("b")));
  EXPECT_FALSE(fs::exists(paths_.in_work));
}

TEST_F(QueueCommands, ReturnsWhatWasNotReachedOnASignal) {
  Photo("a/x.jpg");
  Photo("b/y.jpg");
  Queue({In("a"), In("b")});
  jobs_ = "1";
  // New work arrives meanwhile, and comes last.
  Program("echo /v/new >>'" + paths_.waiting + "'; kill -INT $PPID; exec sleep 60");
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_EQ(RunIt(), 1);
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(30));
  EXPECT_THAT(errors_, HasSubstr("stopped; 2 photos left undone"));
  EXPECT_THAT(Waiting(), ElementsAre(In("a"), In("b"), "/v/new"));
  EXPECT_FALSE(fs::exists(paths_.in_work));
}

TEST_F(QueueCommands, TheNextRunContinuesWhatAKilledOneLeft) {
  Photo("a/x.jpg");
  Photo("b/y.jpg");
  Queue({In("a"), In("b")});
  const std::string works = Read(environment_.keldothumb);
  // A second program that is still being started would hold the lock a moment longer.
  jobs_ = "1";
  Program("kill -KILL $PPID; exec sleep 60");
  const pid_t killed = fork();
  ASSERT_GE(killed, 0);
  if (killed == 0) _exit(RunIt());
  int status = 0;
  ASSERT_EQ(waitpid(killed, &status, 0), killed);
  ASSERT_TRUE(WIFSIGNALED(status));
  EXPECT_EQ(Read(paths_.in_work), In("a") + "\n" + In("b") + "\n");
  EXPECT_THAT(Waiting(), ElementsAre());

  Program(works);
  EXPECT_EQ(RunIt(), 0) << errors_;
  EXPECT_TRUE(IsMade("a/x.jpg"));
  EXPECT_TRUE(IsMade("b/y.jpg"));
  EXPECT_FALSE(fs::exists(paths_.in_work));
}

TEST_F(QueueCommands, AllowsOneRunAtATime) {
  Photo("a/x.jpg");
  Queue({In("a")});
  const UniqueFd other(open(paths_.run_lock.c_str(), O_RDONLY | O_CREAT | O_CLOEXEC, 0600));
  ASSERT_EQ(flock(other.get(), LOCK_EX), 0);
  EXPECT_EQ(RunIt(), 1);
  EXPECT_EQ(errors_, "keldothumbctl: " + paths_.waiting + ": another run is working on it\n");
  EXPECT_THAT(Waiting(), ElementsAre(In("a")));
  EXPECT_FALSE(IsMade("a/x.jpg"));
}

// Anybody who looks at the queue meanwhile sees what is left to do.
TEST_F(QueueCommands, RemovesWhatIsDoneBeforeTheRunEnds) {
  Photo("a/x.jpg");
  Photo("b/y.jpg");
  AllThumbs("b/y.jpg");
  Queue({In("a"), In("b")});
  const std::string seen = dir_.path() + "/seen";
  Program("cp '" + paths_.in_work + "' '" + seen + "'");
  RunIt();
  EXPECT_EQ(Read(seen), In("a") + "\n");
}

TEST_F(QueueCommands, ChecksTheCommandLine) {
  EXPECT_EQ(Status({"queue"}), 2);
  EXPECT_EQ(Status({"queue", "run", "-j", "0"}), 2);
  EXPECT_EQ(Status({"queue", "run", "--help"}), 0);
  EXPECT_THAT(output_, HasSubstr("keldothumbctl queue run --nice"));
}

}  // namespace
}  // namespace keldo::ctl
