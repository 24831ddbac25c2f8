#include "fakes/syslog_capture.h"

#include <gtest/gtest.h>
#include <syslog.h>

#include <cerrno>
#include <cstdarg>
#include <string>

namespace keldo::testing {
namespace {

using Lines = std::vector<LogLine>;

__attribute__((format(printf, 2, 3))) void LogThroughList(int priority, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  vsyslog(priority, format, arguments);
  va_end(arguments);
}

class SyslogCaptureTest : public ::testing::Test {
 protected:
  void SetUp() override { ClearSyslog(); }
};

TEST_F(SyslogCaptureTest, KeepsPriorityAndTextInOrder) {
  syslog(LOG_ERR, "%s:%d [Error] opendir: %s", "index", 12, "/v/a");
  syslog(LOG_DEBUG, "second\n");
  EXPECT_EQ(CapturedSyslog(),
            (Lines{{LOG_ERR, "index:12 [Error] opendir: /v/a"}, {LOG_DEBUG, "second\n"}}));
}

TEST_F(SyslogCaptureTest, AcceptsArgumentLists) {
  LogThroughList(LOG_ERR, "%d and %s", 7, "text");
  EXPECT_EQ(CapturedSyslog(), (Lines{{LOG_ERR, "7 and text"}}));
}

// %m is syslog's own conversion, which strict warnings do not know.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat"
void LogWithReason() {
  syslog(LOG_ERR, "reason=[(%d)%m]", errno);
}
#pragma GCC diagnostic pop

TEST_F(SyslogCaptureTest, ExpandsTheErrorOfTheCallAndKeepsErrno) {
  errno = ENOENT;
  LogWithReason();
  EXPECT_EQ(errno, ENOENT);
  EXPECT_EQ(CapturedSyslog(), (Lines{{LOG_ERR, "reason=[(2)No such file or directory]"}}));
}

TEST_F(SyslogCaptureTest, KeepsLongLinesWhole) {
  const std::string path(5000, 'p');
  syslog(LOG_ERR, "%s", path.c_str());
  EXPECT_EQ(CapturedSyslog(), (Lines{{LOG_ERR, path}}));
}

TEST_F(SyslogCaptureTest, KeepsAnEmptyLine) {
  syslog(LOG_ERR, "%s", "");
  EXPECT_EQ(CapturedSyslog(), (Lines{{LOG_ERR, ""}}));
}

}  // namespace
}  // namespace keldo::testing
