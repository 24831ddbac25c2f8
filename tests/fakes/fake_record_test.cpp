#include <fcntl.h>
#include <glob.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "fakes/core_test.h"
#include "platform/file.h"
#include "platform/process.h"
#include "thumbs/paths.h"
#include "util/handles.h"

namespace keldo::testing {
namespace {

using Texts = std::vector<std::string>;
using FakeRecordTest = CoreTest;

// ---- The record ----

TEST_F(FakeRecordTest, CallsAreRecordedInOrderAndSelectable) {
  fake().killed_processes = 3;
  EXPECT_EQ(KLIBCKill("convert-thumb", 0), 3);
  EXPECT_FALSE(keldoindexutils::stat::DoesFileExist(In("none")));
  EXPECT_EQ(fake().calls,
            (Texts{"KLIBCKill(convert-thumb, 0)", "DoesFileExist(" + In("none") + ")"}));
  EXPECT_EQ(fake().CallsOf({"KLIBCKill"}), (Texts{"KLIBCKill(convert-thumb, 0)"}));
}

TEST_F(FakeRecordTest, TheNthCallFailsOnce) {
  const std::string path = WriteFile(In("a"), "x");
  fake().FailCall("KLIBCFileStat", 2, EACCES);
  KLIBCFileRecord record{};
  EXPECT_EQ(KLIBCFileStat(path.c_str(), 9, &record), 0);
  EXPECT_EQ(record.st.st_size, 1);
  errno = 0;
  EXPECT_EQ(KLIBCFileStat(path.c_str(), 9, &record), -1);
  EXPECT_EQ(errno, EACCES);
  EXPECT_EQ(KLIBCFileStat(path.c_str(), 9, &record), 0);
}

TEST_F(FakeRecordTest, SeveralCallsOfOneOperationCanFail) {
  fake().FailCall("KLIBCProcPidFileCreate", 1);
  fake().FailCall("KLIBCProcPidFileCreate", 3);
  EXPECT_EQ(KLIBCProcPidFileCreate(paths::kPidFile), -1);
  EXPECT_EQ(KLIBCProcPidFileCreate(paths::kPidFile), 0);
  EXPECT_EQ(KLIBCProcPidFileCreate(paths::kPidFile), -1);
  EXPECT_EQ(KLIBCProcPidFileCreate(paths::kPidFile), 0);
}

TEST_F(FakeRecordTest, ResetForgetsRecordsScriptsAndSandbox) {
  fake().FailAlways("KLIBGetFsAvailSize");
  fake().WriteLines(paths::kThumbQueue, {"/v"});
  syslog(LOG_ERR, "line");
  EXPECT_EQ(KLIBGetFsAvailSize("/v"), 0u);
  fake().Reset();
  EXPECT_EQ(KLIBGetFsAvailSize("/v"), std::uint64_t{1} << 40);
  EXPECT_EQ(fake().calls, (Texts{"KLIBGetFsAvailSize(/v)"}));
  EXPECT_FALSE(Exists(fake().Real(paths::kThumbQueue)));
  ExpectNoLog();
}

// ---- The sandbox ----

TEST_F(FakeRecordTest, FixedPathsLieInTheSandboxOthersWhereTheyAre) {
  EXPECT_EQ(fake().Real("/var/spool/thumb_create.queue"),
            fake().sandbox() + "/var/spool/thumb_create.queue");
  EXPECT_EQ(fake().Real(paths::kPluginDaemonSocket),
            fake().sandbox() + "/tmp/keldoindexplugind_sock");
  EXPECT_EQ(fake().Real(In("a.jpg")), In("a.jpg"));
  EXPECT_EQ(fake().Real("relative"), "relative");
}

TEST_F(FakeRecordTest, SystemCallsOnFixedPathsReachTheSandbox) {
  EXPECT_EQ(access(paths::kThumbQueue, R_OK), -1);
  fake().WriteLines(paths::kThumbQueue, {"/v/a", "/v/b"});
  EXPECT_EQ(access(paths::kThumbQueue, R_OK), 0);

  std::array<char, 16> text{};
  const UniqueFile file(std::fopen(paths::kThumbQueue, "re"));
  ASSERT_TRUE(file);
  EXPECT_EQ(std::fread(text.data(), 1, text.size(), file.get()), 10u);
  EXPECT_STREQ(text.data(), "/v/a\n/v/b\n");

  EXPECT_EQ(unlink(paths::kThumbQueue), 0);
  EXPECT_FALSE(Exists(fake().Real(paths::kThumbQueue)));
  fake().FailCall("unlink", 1, EPERM);
  EXPECT_EQ(unlink(paths::kThumbQueue), -1);
  EXPECT_EQ(errno, EPERM);
}

TEST_F(FakeRecordTest, GlobGivesFixedPathsBackAsTheProgramKnowsThem) {
  fake().WriteLines("/var/run/keldothumb.42.pid", {"42"});
  fake().WriteLines("/var/run/keldothumb.7.pid", {"7"});
  glob_t found{};
  ASSERT_EQ(glob(paths::kProcessPidFilePattern, 0, nullptr, &found), 0);
  const Texts names(found.gl_pathv, found.gl_pathv + found.gl_pathc);
  globfree(&found);
  EXPECT_EQ(names, (Texts{"/var/run/keldothumb.42.pid", "/var/run/keldothumb.7.pid"}));
}

TEST_F(FakeRecordTest, SystemCallsOnOtherPathsAreLeftAlone) {
  const std::string path = WriteFile(In("a"), "x");
  EXPECT_EQ(access(path.c_str(), R_OK), 0);
  EXPECT_EQ(unlink(path.c_str()), 0);
  EXPECT_FALSE(Exists(path));
  EXPECT_EQ(fake().calls, Texts{});
}

TEST_F(FakeRecordTest, SystemCallsFailAsScriptedOnAnyPath) {
  const std::string path = WriteFile(In("a"), "x");
  const auto fail = [](const char* call) { fake().FailCall(call, 1, EACCES); };
  const auto refused = [](int result) { return result == -1 && errno == EACCES; };
  for (const char* call :
       {"access", "chmod", "fopen", "mkdir", "open", "opendir", "rename", "unlink"}) {
    fail(call);
  }
  EXPECT_TRUE(refused(access(path.c_str(), R_OK)));
  EXPECT_TRUE(refused(chmod(path.c_str(), 0600)));
  EXPECT_FALSE(UniqueFile(std::fopen(path.c_str(), "re")));
  EXPECT_TRUE(refused(mkdir(In("d").c_str(), 0777)));
  EXPECT_TRUE(refused(open(path.c_str(), O_RDONLY | O_CLOEXEC)));
  EXPECT_FALSE(UniqueDir(opendir(Dir().c_str())));
  EXPECT_TRUE(refused(rename(path.c_str(), In("b").c_str())));
  EXPECT_TRUE(refused(unlink(path.c_str())));
  EXPECT_EQ(Mode(path), 0666u);
  EXPECT_FALSE(Exists(In("d")));
}

TEST_F(FakeRecordTest, SystemCallsDoTheirWorkOtherwise) {
  const std::string path = WriteFile(In("a"), "x");
  EXPECT_EQ(chmod(path.c_str(), 0600), 0);
  EXPECT_EQ(Mode(path), 0600u);
  EXPECT_EQ(mkdir(In("d").c_str(), 0751), 0);
  EXPECT_EQ(Mode(In("d")), 0751u);
  EXPECT_TRUE(UniqueFd(open(In("n").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0640)).valid());
  EXPECT_EQ(Mode(In("n")), 0640u);
  EXPECT_TRUE(UniqueDir(opendir(Dir().c_str())));
  EXPECT_EQ(rename(path.c_str(), In("b").c_str()), 0);
  EXPECT_TRUE(Exists(In("b")));
  EXPECT_EQ(rename(In("b").c_str(), paths::kThumbQueue), 0);
  EXPECT_EQ(fake().ReadLines(paths::kThumbQueue), (Texts{"x"}));
}

// ---- The fixture ----

TEST_F(FakeRecordTest, TheFixtureMakesFilesOfGivenTimesAndModes) {
  const std::string path = WriteFile(In("d/e/a\nb"), "bytes");
  SetTime(path, 1000);
  EXPECT_EQ(ModificationTime(path), 1000);
  EXPECT_EQ(Mode(path), 0666u);
  EXPECT_EQ(Mode(MakeDir(In("x"))), 0777u);
  EXPECT_EQ(ReadFile(path), "bytes");
}

}  // namespace
}  // namespace keldo::testing
