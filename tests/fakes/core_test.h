// The fixture of the core's unit tests: a fresh directory, a fresh fake platform, an empty log.
#pragma once

#include <gtest/gtest.h>
#include <sys/types.h>

#include <ctime>
#include <string>
#include <vector>

#include "fakes/fake_platform.h"
#include "fakes/syslog_capture.h"
#include "support/temp_dir.h"

namespace keldo::testing {

/// Runs every test in a directory of its own, with the umask 0 of the program's runs.
class CoreTest : public ::testing::Test {
 protected:
  CoreTest();
  ~CoreTest() override;
  CoreTest(const CoreTest&) = delete;
  CoreTest& operator=(const CoreTest&) = delete;

  void SetUp() override;
  /// No stream of KLIBCPopen may be left open.
  void TearDown() override;

  /// The test's directory, and a path in it.
  [[nodiscard]] const std::string& Dir() const { return directory_.path(); }
  [[nodiscard]] std::string In(const std::string& relative) const { return Dir() + "/" + relative; }

  /// Writes a file, making its directory where that is missing. Returns the path.
  static std::string WriteFile(const std::string& path, const std::string& bytes);
  /// Makes a directory and those above it. Returns the path.
  static std::string MakeDir(const std::string& path);
  /// Sets the access and modification time to whole seconds since the epoch.
  static void SetTime(const std::string& path, time_t seconds);
  [[nodiscard]] static time_t ModificationTime(const std::string& path);
  [[nodiscard]] static bool Exists(const std::string& path);
  /// The permission bits.
  [[nodiscard]] static mode_t Mode(const std::string& path);
  [[nodiscard]] static std::string ReadFile(const std::string& path);

  /// The log holds this line and no other.
  static void ExpectOneLog(int priority, const std::string& text);
  static void ExpectNoLog();

 private:
  TempDir directory_;
  mode_t umask_before_;
};

}  // namespace keldo::testing
