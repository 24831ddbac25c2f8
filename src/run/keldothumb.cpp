#include "run/keldothumb.h"

#include <glob.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>

#include "platform/file.h"
#include "platform/process.h"
#include "process/startup.h"
#include "run/thumb_job.h"
#include "thumbs/directories.h"
#include "thumbs/paths.h"
#include "thumbs/thumb_profile.h"
#include "thumbs/tool_selection.h"
#include "thumbs/tree_walk.h"
#include "thumbs/work_queue.h"
#include "util/path.h"
#include "util/termination.h"

namespace keldo {
namespace {

// The directory of "R:" alone. No walk finds it.
constexpr const char* kNoDirectory = "(null)";
constexpr const char* kSource = "keldothumb";
constexpr int kDecimal = 10;
constexpr int kTargetFailedLine = 1190;
constexpr int kWalkEndedLine = 1256;

// Owns what glob(3) allocates.
class GlobResult {
 public:
  explicit GlobResult(const char* pattern) : found_(glob(pattern, 0, nullptr, &paths_) == 0) {}
  ~GlobResult() { globfree(&paths_); }
  GlobResult(const GlobResult&) = delete;
  GlobResult& operator=(const GlobResult&) = delete;

  [[nodiscard]] std::size_t count() const { return found_ ? paths_.gl_pathc : 0; }
  [[nodiscard]] const char* at(std::size_t index) const { return paths_.gl_pathv[index]; }

 private:
  glob_t paths_{};
  bool found_;
};

// The number between the first and the second dot of "/var/run/keldothumb.4242.pid"; 0 when there
// is none.
pid_t PidOfPath(const std::string& path) {
  const std::size_t dot = path.find('.');
  if (dot == std::string::npos) return 0;
  return static_cast<pid_t>(std::strtol(path.c_str() + dot + 1, nullptr, kDecimal));
}

// SIGTERM. It is let in at safe points only, so that ordinary code may run here. The run's own pid
// file stays: whoever stopped us looks for it.
[[noreturn]] void Terminate(int /*signal*/) {
  std::string own_pid_file(kMaxPathText, '\0');
  const int length = std::snprintf(own_pid_file.data(), own_pid_file.size(),
                                   paths::kProcessPidFileFormat, static_cast<int>(getpid()));
  own_pid_file.resize(static_cast<std::size_t>(length));
  unlink(own_pid_file.c_str());
  const std::string converter = ConverterPath();
  KLIBCKill(basename(converter.c_str()), 0);
  std::exit(1);
}

void ProcessArgument(const std::string& argument, const std::string& profile_path) {
  const QueueEntry entry = ParseQueueLine(argument);
  if (entry.is_tree) {
    WalkTree(CutToPathBuffer(entry.PathUpToColon().value_or(kNoDirectory)), profile_path);
  } else {
    ProcessTarget(CutToPathBuffer(argument), profile_path);
  }
}

}  // namespace

int RunKeldothumb(int argc, char** argv) {
  if (argc < 3) return 1;
  process::EnsureStandardDescriptors();
  HoldTermination();
  umask(0);
  KillThumbProcesses();
  std::signal(SIGTERM, Terminate);
  KLIBCProcPidFileCreate(paths::kPidFile);

  const std::string profile_path = CutToPathBuffer(argv[1]);
  for (int i = 2; i < argc; ++i) {
    LetTerminationIn();
    ProcessArgument(argv[i], profile_path);
  }
  LetTerminationIn();
  unlink(paths::kPidFile);
  return 0;
}

void ProcessPath(const std::string& target_path, const std::string& profile_path) {
  struct stat status {};
  if (stat(target_path.c_str(), &status) != 0 || stat(profile_path.c_str(), &status) != 0) return;
  if (!IsFileSystemAccepted(target_path)) return;
  ThumbProfileList profiles;
  if (profiles.load(profile_path, target_path) == 0) {
    static_cast<void>(std::fprintf(stderr, "Failed to parse %s", profile_path.c_str()));
    return;
  }
  RunThumbJob({target_path, &profiles});
}

void ProcessTarget(const std::string& target_path, const std::string& profile_path) {
  try {
    ProcessPath(target_path, profile_path);
  } catch (const std::exception& error) {
    syslog(LOG_ERR, "%s:%d [Error] giving up on %s: %s", kSource, kTargetFailedLine,
           target_path.c_str(), error.what());
  }
}

void KillThumbProcesses() {
  const GlobResult pid_files(paths::kProcessPidFilePattern);
  for (std::size_t i = 0; i < pid_files.count(); ++i) {
    const std::string path = pid_files.at(i);
    const pid_t pid = PidOfPath(path);
    if (pid == 0 || kill(pid, 0) == 0 || unlink(path.c_str()) == 0) continue;
    syslog(LOG_ERR, "%s: %s(%d) - unlink(%s), %s\n", kSource, "KillThumbProcesses", 1214,
           path.c_str(), std::strerror(errno));
  }
}

void WalkTree(const std::string& directory, const std::string& profile_path) {
  const int result = WalkAccepted(directory, [&](const char* path) {
    LetTerminationIn();
    ProcessTarget(path, profile_path);
  });
  const int walk_error = errno;
  // A missing root is skipped in silence, like every missing target. A walk that ends early, for
  // instance at a link that leads to itself, has left directories out, and the log must say so.
  if (result == -1 && keldoindexutils::stat::DoesDirExist(directory)) {
    syslog(LOG_ERR, "%s:%d [Error] walk of %s ended early, %s", kSource, kWalkEndedLine,
           directory.c_str(), std::strerror(walk_error));
  }
}

}  // namespace keldo
