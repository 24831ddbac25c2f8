#include "platform/system.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/sysinfo.h>
#include <syslog.h>

#include "fakes/syslog_capture.h"

namespace {

using keldo::testing::CapturedSyslog;
using keldo::testing::ClearSyslog;
using keldo::testing::LogLine;
using ::testing::ElementsAre;

TEST(GetTotalMemory, IsTheMachinesMemoryInKib) {
  struct sysinfo machine {};
  ASSERT_EQ(sysinfo(&machine), 0);
  long total = -1;
  EXPECT_EQ(GetTotalMemory(&total), 0);
  EXPECT_EQ(static_cast<unsigned long>(total), machine.totalram * machine.mem_unit / 1024);
}

TEST(AppLogError, LogsOneLineAtTheErrorLevel) {
  ClearSyslog();
  AppLogError(3, "%s:%d Failed to remove files by pattern [%s/*.fail]", "keldothumb", 956, "/v/%d");
  EXPECT_THAT(CapturedSyslog(),
              ElementsAre(LogLine{
                  LOG_ERR, "keldothumb:956 Failed to remove files by pattern [/v/%d/*.fail]"}));
}

}  // namespace
