// keldothumbctl doctor: check that this machine has what thumbnails need.
#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "ctl/console.h"
#include "index/index_database.h"
#include "thumbs/paths.h"
#include "thumbs/tool_selection.h"

namespace keldo::ctl {

/// What one check found.
struct CheckResult {
  enum class Level {
    kOk,
    kNote,     ///< Missing, but not required.
    kWarning,  ///< Affects some photos, or something other than thumbnails.
    kProblem,  ///< No thumbnails can be made.
  };

  std::string name;
  Level level = Level::kOk;
  std::string text;
  std::string advice;  ///< What to do about it.
};

/// What is checked.
struct DoctorPaths {
  std::string keldothumb;
  std::string profile;
  std::string database = index::kDatabasePath;
  std::string converter = ConverterPath();
  std::string djpeg = paths::kDjpeg;
  std::string dcraw = paths::kDcraw;
  std::string compare = paths::kCompare;
  std::string heif_library = "libheif.so.1";
  std::string queue = paths::kThumbQueue;
  std::string progress = paths::kPhotoProgress;
  std::string pid_file = paths::kPidFile;
  std::string daemon_socket = paths::kPluginDaemonSocket;
  std::string watch_limit = "/proc/sys/fs/inotify/max_user_watches";
  std::chrono::milliseconds deadline{10'000};  ///< For each program that is run.
};

/// Checks keldothumb and the programs that it runs.
[[nodiscard]] std::vector<CheckResult> CheckPrograms(const DoctorPaths& paths);

/// Checks libraries, files, the daemon and the limits of the system.
[[nodiscard]] std::vector<CheckResult> CheckSystem(const DoctorPaths& paths);

/// Runs all checks and prints the results. Returns the exit status: 1 when there is a problem.
[[nodiscard]] int RunDoctor(const DoctorPaths& paths, bool json, Console& console);

}  // namespace keldo::ctl
