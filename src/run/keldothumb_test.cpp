#include "run/keldothumb.h"

#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <new>

#include "platform/index_ipc.h"
#include "support/job_test.h"

namespace keldo::testing {
namespace {

class KeldothumbTest : public JobTest {
 protected:
  void SetUp() override {
    JobTest::SetUp();
    before_ = std::signal(SIGTERM, SIG_DFL);
  }
  void TearDown() override {
    static_cast<void>(std::signal(SIGTERM, before_));
    JobTest::TearDown();
  }

  // Runs the program with these arguments.
  static int Run(Texts arguments) {
    arguments.insert(arguments.begin(), "keldothumb");
    std::vector<char*> argv;
    for (std::string& argument : arguments)
      argv.push_back(argument.data());
    argv.push_back(nullptr);
    return RunKeldothumb(static_cast<int>(arguments.size()), argv.data());
  }

 private:
  void (*before_)(int) = SIG_DFL;
};

// ---- Command line ----

TEST_F(KeldothumbTest, TooFewArgumentsDoNothing) {
  umask(022);
  EXPECT_EQ(Run({}), 1);
  EXPECT_EQ(Run({profile_path_}), 1);
  EXPECT_EQ(umask(0), 022u);
  EXPECT_EQ(std::signal(SIGTERM, SIG_DFL), SIG_DFL);
  EXPECT_EQ(fake().calls, Texts{});
  ExpectNoLog();
}

TEST_F(KeldothumbTest, ARunStartsAndEndsInOrder) {
  umask(022);
  EXPECT_EQ(Run({profile_path_, In("none")}), 0);
  EXPECT_EQ(umask(0), 0u);
  EXPECT_NE(std::signal(SIGTERM, SIG_DFL), SIG_DFL);
  EXPECT_EQ(fake().calls,
            (Texts{"EnsureStandardDescriptors()", "HoldTermination()",
                   "glob(/var/run/keldothumb.*.pid, 0)",
                   "KLIBCProcPidFileCreate(/var/run/keldothumb.pid)", "LetTerminationIn()",
                   "LetTerminationIn()", "unlink(/var/run/keldothumb.pid)"}));
  ExpectNoLog();
}

TEST_F(KeldothumbTest, ThePidFileExistsDuringTheRun) {
  Texts during;
  fake().on_let_termination_in = [&] { during = fake().ReadLines(paths::kPidFile); };
  EXPECT_EQ(Run({profile_path_, job_.path}), 0);
  EXPECT_EQ(during, (Texts{std::to_string(getpid())}));
  EXPECT_FALSE(Exists(fake().Real(paths::kPidFile)));
}

TEST_F(KeldothumbTest, ARunGoesOnWithoutAPidFile) {
  fake().FailCall("KLIBCProcPidFileCreate");
  EXPECT_EQ(Run({profile_path_, job_.path}), 0);
  EXPECT_EQ(Processed(), (Texts{job_.path}));
}

TEST_F(KeldothumbTest, TargetsAreProcessedFromLeftToRight) {
  const std::string b = MakeDir(In("b"));
  const std::string a = MakeDir(In("a"));
  const std::string deep = MakeDir(In("tree/deep"));
  EXPECT_EQ(Run({profile_path_, b, "R:" + In("tree"), a, b}), 0);
  EXPECT_EQ(Processed(), (Texts{b, In("tree"), deep, a, b}));
  EXPECT_EQ(fake().CallsOf({"ConfParser::loadFromFile"}),
            Texts(5, "ConfParser::loadFromFile(" + profile_path_ + ")"));
}

TEST_F(KeldothumbTest, OnlyACapitalRIsAWalk) {
  MakeDir(In("deep"));
  const std::string target = "r:" + Dir();
  EXPECT_EQ(Run({profile_path_, target, Dir() + "/R:x"}), 0);
  EXPECT_EQ(Processed(), Texts{});
  const std::string plain = MakeDir(In("R:x"));
  EXPECT_EQ(Run({profile_path_, plain}), 0);
  EXPECT_EQ(Processed(), (Texts{plain}));
}

TEST_F(KeldothumbTest, AWalkEndsAtTheNextColon) {
  const std::string cut = MakeDir(In("a"));
  MakeDir(In("a:b"));
  EXPECT_EQ(Run({profile_path_, "R:" + In("a:b"), "R:::" + In("a:b") + ":c"}), 0);
  EXPECT_EQ(Processed(), (Texts{cut, cut}));
}

TEST_F(KeldothumbTest, AWalkThatNamesNoDirectoryIsSilent) {
  EXPECT_EQ(Run({profile_path_, "R:", "R:" + In("none")}), 0);
  EXPECT_EQ(Processed(), Texts{});
  ExpectNoLog();
}

TEST_F(KeldothumbTest, LongArgumentsAreCut) {
  std::string longer = job_.path;
  while (longer.size() < 5000)
    longer += "/.";
  std::string longer_profile = Dir();
  while (longer_profile.size() < 4095 - 11)
    longer_profile += "/";
  longer_profile += "/thumb.conf";
  ASSERT_EQ(longer_profile.size(), 4095u);
  EXPECT_EQ(Run({longer_profile + "cut off", longer}), 0);
  EXPECT_EQ(Processed(), (Texts{longer.substr(0, 4095)}));
  fake().calls.clear();
  const std::string exact = Dir() + std::string(4095 - job_.path.size() + 1, '/') + "photos";
  ASSERT_EQ(exact.size(), 4095u);
  EXPECT_EQ(Run({profile_path_, "R:" + exact + "/cut off"}), 0);
  EXPECT_EQ(Processed(), (Texts{exact}));
}

// ---- One target ----

TEST_F(KeldothumbTest, AMissingTargetOrProfileIsSkipped) {
  ProcessPath(In("none"), profile_path_);
  ProcessPath(job_.path, In("none.conf"));
  ProcessPath("", profile_path_);
  ProcessPath(job_.path, "");
  EXPECT_EQ(fake().calls, Texts{});
  ExpectNoLog();
}

TEST_F(KeldothumbTest, UnsuitableFileSystemsAreSkipped) {
  for (const int type : {kRemoteFs, kImageFs, kUnsuitableFs}) {
    fake().fs_types[job_.path] = type;
    ProcessPath(job_.path, profile_path_);
  }
  EXPECT_EQ(Processed(), Texts{});
  EXPECT_EQ(fake().CallsOf({"ConfParser::loadFromFile"}), Texts{});
  ExpectNoLog();
}

TEST_F(KeldothumbTest, AFileSystemOfUnknownTypeIsAccepted) {
  fake().FailCall("KELDOGetFSType", 1, EACCES);
  ProcessPath(job_.path, profile_path_);
  EXPECT_EQ(Processed(), (Texts{job_.path}));
  ExpectOneLog(LOG_DEBUG,
               "index:66 failed to statfs " + job_.path + ", reason=[(13)Permission denied]");
}

TEST_F(KeldothumbTest, AProfileThatCannotBeParsedIsReported) {
  Photo("a.png");
  const std::string bad = WriteFile(In("bad.conf"), "rubbish\n");
  ::testing::internal::CaptureStderr();
  EXPECT_EQ(Run({bad, job_.path, job_.path}), 0);
  EXPECT_EQ(::testing::internal::GetCapturedStderr(),
            "Failed to parse " + bad + "Failed to parse " + bad);
  EXPECT_FALSE(Exists(job_.path + "/@eaDir"));
  ExpectNoLog();
}

TEST_F(KeldothumbTest, TheJobRunsOnTheTargetAsWritten) {
  Photo("a.png");
  const std::string target = In("./photos/");
  fake().image_sizes[target + "/a.png"] = {4, 3};
  fake().image_sizes[target + "/@eaDir/a.png/KELDOPHOTO_THUMB_XL.jpg"] = {4, 3};
  EXPECT_EQ(Run({profile_path_, target}), 0);
  EXPECT_EQ(Queue(), (Texts{target}));
  EXPECT_EQ(Made("a.png"), (Texts{"XL", "B", "M", "L", "SM"}));
  ExpectNoLog();
}

TEST_F(KeldothumbTest, OnlyTheProfilesThatTheIndexWantsAreMade) {
  Photo("a.png");
  fake().dir_masks[{job_.path, THUMB_TYPE_PHOTO}] = 0b10010;
  ProcessPath(job_.path, profile_path_);
  EXPECT_EQ(Made("a.png"), (Texts{"XL", "M"}));
}

TEST_F(KeldothumbTest, AnExceptionEndsItsTargetOnly) {
  Photo("a.png");
  Photo("b.png");
  const std::string other = MakeDir(In("other"));
  fake().on_run = [](const Command& /*command*/) -> int { throw std::bad_alloc(); };
  EXPECT_EQ(Run({profile_path_, job_.path, other}), 0);
  ExpectOneLog(LOG_ERR, "keldothumb:1190 [Error] giving up on " + job_.path + ": std::bad_alloc");
  EXPECT_EQ(fake().runs.size(), 1u);
  EXPECT_EQ(Processed(), (Texts{job_.path, other}));
  EXPECT_FALSE(Exists(fake().Real(paths::kPidFile)));
}

// ---- Stale pid files ----

// Above the largest number that the kernel gives to a process.
constexpr const char* kGone = "/var/run/keldothumb.999999999.pid";

class SweepTest : public KeldothumbTest {
 protected:
  static bool IsLeft(const std::string& path) { return Exists(fake().Real(path)); }
};

TEST_F(SweepTest, OnlyPidFilesOfEndedProcessesAreRemoved) {
  const std::string alive = "/var/run/keldothumb." + std::to_string(getpid()) + ".pid";
  const Texts kept{alive,
                   "/var/run/keldothumb.x.pid",
                   "/var/run/keldothumb.0.pid",
                   "/var/run/keldothumb..pid",
                   "/var/run/keldothumb.pid",
                   "/var/run/keldothumb.999999999.lock",
                   "/var/run/other.999999999.pid"};
  const Texts gone{kGone, "/var/run/keldothumb.999999998.x.pid"};
  for (const Texts& files : {kept, gone}) {
    for (const std::string& file : files)
      fake().WriteLines(file, {"x"});
  }
  KillThumbProcesses();
  for (const std::string& file : kept)
    EXPECT_TRUE(IsLeft(file)) << file;
  for (const std::string& file : gone)
    EXPECT_FALSE(IsLeft(file)) << file;
  ExpectNoLog();
}

TEST_F(SweepTest, AFileThatCannotBeRemovedIsLoggedAndTheSweepGoesOn) {
  fake().WriteLines("/var/run/keldothumb.999999998.pid", {"x"});
  fake().WriteLines(kGone, {"x"});
  fake().FailCall("unlink", 1, EPERM);
  KillThumbProcesses();
  ExpectOneLog(LOG_ERR,
               "keldothumb: KillThumbProcesses(1214) - unlink(/var/run/keldothumb.999999998.pid), "
               "Operation not permitted\n");
  EXPECT_FALSE(IsLeft(kGone));
}

TEST_F(SweepTest, WithoutFilesThereIsNothingToDo) {
  KillThumbProcesses();
  fake().FailCall("glob");
  KillThumbProcesses();
  EXPECT_EQ(fake().CallsOf({"unlink"}), Texts{});
  ExpectNoLog();
}

TEST_F(SweepTest, ARunSweepsBeforeItsFirstTarget) {
  fake().WriteLines(kGone, {"x"});
  EXPECT_EQ(Run({profile_path_, In("none")}), 0);
  EXPECT_FALSE(IsLeft(kGone));
}

// ---- Termination ----

// Written when a process exits because of SIGTERM: its last calls to the platform.
void WriteLastCalls() {
  const std::vector<std::string>& calls = fake().calls;
  std::ofstream file(fake().sandbox() + "/last_calls");
  for (std::size_t i = calls.size() < 3 ? 0 : calls.size() - 3; i < calls.size(); ++i)
    file << calls[i] << '\n';
}

class TerminationDeathTest : public KeldothumbTest {
 protected:
  // A run that is sent SIGTERM before its first target.
  void RunAndTerminate() const {
    static_cast<void>(std::atexit(WriteLastCalls));
    fake().WriteLines(OwnPidFile(), {"x"});
    fake().on_let_termination_in = [] { static_cast<void>(std::raise(SIGTERM)); };
    Run({profile_path_, job_.path});
  }
  static std::string OwnPidFile() {
    return "/var/run/keldothumb." + std::to_string(getpid()) + ".pid";
  }
};

TEST_F(TerminationDeathTest, ATerminatedRunStopsItsConvertersAndExitsWithOne) {
  ASSERT_TRUE(Exists(fake().sandbox()));
  EXPECT_EXIT(RunAndTerminate(), ::testing::ExitedWithCode(1), "");
  const Texts last = fake().ReadLines(fake().sandbox() + "/last_calls");
  ASSERT_EQ(last.size(), 3u);
  // The file of the terminated process, whose number is not known here.
  EXPECT_TRUE(last[0].starts_with("unlink(/var/run/keldothumb.")) << last[0];
  EXPECT_NE(last[0], "unlink(/var/run/keldothumb.pid)");
  const std::string file = last[0].substr(7, last[0].size() - 8);
  EXPECT_FALSE(Exists(fake().Real(file)));
  EXPECT_EQ(last[2], "KLIBCKill(convert-thumb, 0)");
  // The run's own pid file is left for whoever stopped it.
  EXPECT_TRUE(Exists(fake().Real(paths::kPidFile)));
}

TEST_F(TerminationDeathTest, ThePackagesConverterIsStoppedByItsName) {
  WriteFile(fake().Real(paths::kCodecPackageMarker), "");
  EXPECT_EXIT(RunAndTerminate(), ::testing::ExitedWithCode(1), "");
  EXPECT_EQ(fake().ReadLines(fake().sandbox() + "/last_calls").back(), "KLIBCKill(convert, 0)");
}

}  // namespace
}  // namespace keldo::testing
