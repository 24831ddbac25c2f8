// keldothumb with the real keldoindexplugind, which answers from the same index.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sqlite3.h>

#include "e2e/fixtures.h"

namespace keldo::testing {
namespace {

using ::testing::HasSubstr;

constexpr const char* kDatabase = "/var/lib/keldoindex/index.db";

// Runs a shell command while the daemon is running, then stops the daemon.
RunResult WithDaemon(Sandbox& box, const std::string& command) {
  return box.Run({"/bin/sh", "-c",
                  "PATH=/program:$PATH; keldoindexplugind & daemon=$!\n"
                  "for try in $(seq 200); do\n"
                  "  [ -S /tmp/keldoindexplugind_sock ] && break; sleep 0.02\n"
                  "done\n" +
                      command +
                      "; status=$?\n"
                      "kill $daemon && wait $daemon || echo \"the daemon ended with $?\"\n"
                      "[ ! -e /tmp/keldoindexplugind_sock ] || echo 'its socket is left'\n"
                      "exit $status"});
}

// Checks that every log line is the daemon's, since keldothumb must not log any error.
auto OnlyTheDaemons() {
  return ::testing::Each(::testing::Field(&LogLine::text, HasSubstr(" keldoindexplugind[")));
}

constexpr const char* kRun = "keldothumb /conf/profile /volume1/photo";

void SetVersion(const Sandbox& box, const std::string& photo, int version) {
  sqlite3* database = nullptr;
  ASSERT_EQ(sqlite3_open(box.Outside(kDatabase).c_str(), &database), SQLITE_OK);
  sqlite3_stmt* statement = nullptr;
  ASSERT_EQ(sqlite3_prepare_v2(database, "INSERT INTO versions VALUES(CAST(?1 AS BLOB),?2)", -1,
                               &statement, nullptr),
            SQLITE_OK);
  sqlite3_bind_text(statement, 1, photo.c_str(), -1, SQLITE_STATIC);
  sqlite3_bind_int(statement, 2, version);
  EXPECT_EQ(sqlite3_step(statement), SQLITE_DONE);
  sqlite3_finalize(statement);
  sqlite3_close(database);
}

TEST(PlugindTest, AnswersForANewPhotoAndRecordsThatItIsFinished) {
  Sandbox box;
  const std::string photo = box.AddPhoto("a \"'%\n\xFF.jpg");
  const RunResult run = WithDaemon(box, kRun);
  EXPECT_EQ(run.exit_status, 0) << run.standard_error;
  EXPECT_EQ(run.standard_output, "");
  EXPECT_THAT(run.log, OnlyTheDaemons()) << "no request failed";
  EXPECT_TRUE(AutoOrients(run));
  const RunResult shown = box.Run({"keldothumbctl", "index", "show", photo});
  EXPECT_EQ(shown.exit_status, 0);
  EXPECT_THAT(shown.standard_output, HasSubstr("inished"));
}

TEST(PlugindTest, KnownPhotoIsNotRotatedByItsTag) {
  Sandbox box;
  const std::string photo = box.AddPhoto("a.jpg");
  ASSERT_EQ(WithDaemon(box, "true").exit_status, 0) << "makes the database";
  SetVersion(box, photo, 3);
  const RunResult run = WithDaemon(box, kRun);
  EXPECT_THAT(run.log, OnlyTheDaemons());
  EXPECT_FALSE(AutoOrients(run));
}

TEST(PlugindTest, ServesSeveralRunsAtOnce) {
  Sandbox box;
  for (int i = 0; i < 6; ++i)
    box.AddPhoto(std::to_string(i) + "/a.jpg");
  const RunResult run =
      WithDaemon(box, "keldothumbctl make -q -j 6 --profile /conf/profile /volume1");
  EXPECT_EQ(run.exit_status, 0) << run.standard_output << run.standard_error;
  EXPECT_THAT(run.log, OnlyTheDaemons());
}

}  // namespace
}  // namespace keldo::testing
