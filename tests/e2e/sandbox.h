// A sandbox for the program: the real binary in bubblewrap, with private mounts, processes and
// network. Everything that it writes is in a scratch directory that the test can read.
#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <ctime>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "e2e/log_collector.h"
#include "e2e/scripted_daemon.h"
#include "standins/invocation.h"
#include "support/temp_dir.h"
#include "util/handles.h"

namespace keldo::testing {

/// The directory of the photos in most tests, and their modification time.
inline constexpr const char* kPhotoDir = "/volume1/photo";
inline constexpr std::time_t kPhotoTime = 1'600'000'000;

/// The unit in which memory file systems allocate space.
inline constexpr std::size_t kPage = 4096;

/// True if the tests with real tools use ImageMagick's converter. They run once with each
/// converter.
[[nodiscard]] bool UsesImageMagick();

/// The result of a run of a program.
struct RunResult {
  int exit_status = -1;  ///< -1 if a signal ended it.
  int signal = 0;        ///< That signal.
  std::string standard_output;
  std::string standard_error;
  std::vector<LogLine> log;
  std::vector<Invocation> invocations;  ///< Of the stand-ins, in order.
  std::vector<std::string> requests;    ///< To the scripted daemon, in order.
  std::vector<std::string> survivors;   ///< Processes that outlived the program by five seconds.
  long system_calls = 0;                ///< Of the program, if the run was to be interrupted.
};

/// A signal for the program at the moment when it enters a system call, counted from its start.
/// The call 0 never comes: all calls are counted.
struct SignalAt {
  int signal = 0;
  long call = 0;
};

class Sandbox;

/// A current run. It ends with this object at the latest.
class Running {
 public:
  Running(Sandbox& box, const std::vector<std::string>& arguments,
          std::optional<SignalAt> signal_at = std::nullopt);
  ~Running();
  Running(const Running&) = delete;
  Running& operator=(const Running&) = delete;

  /// Sends a signal to the program itself. Does nothing if it has ended.
  void Signal(int signal);
  /// Waits for the end of the program and of the processes that it left.
  [[nodiscard]] RunResult Finish();

 private:
  Sandbox& box_;
  UniqueFd control_;
  pid_t bwrap_ = -1;
};

/// All paths are those inside the sandbox unless noted otherwise. /volume1, /conf, /run,
/// /var/spool, /var/lib, /var/packages, /usr/keldo and /tmp start empty, are writable, and persist
/// between runs. The rest is the host's, read-only. The external tools are stand-ins by default.
class Sandbox {
 public:
  Sandbox();

  /// Runs a program to its end: "keldothumb", "keldothumbctl", "keldoindexplugind" (which are in
  /// /program) or an absolute path.
  [[nodiscard]] RunResult Run(const std::vector<std::string>& arguments);
  /// Runs keldothumb with the profile file on these targets.
  [[nodiscard]] RunResult RunOn(const std::vector<std::string>& targets = {kPhotoDir});
  /// Starts keldothumb with the profile file on the photo directory.
  [[nodiscard]] std::unique_ptr<Running> Start();
  /// Runs the same to its end and interrupts it at that system call.
  [[nodiscard]] RunResult RunInterrupted(SignalAt signal_at);

  // Files.
  [[nodiscard]] std::string Outside(const std::string& inside) const;
  void Write(const std::string& inside, const std::string& content) const;
  [[nodiscard]] std::string Read(const std::string& inside) const;
  [[nodiscard]] bool Exists(const std::string& inside) const;
  void MakeDirectory(const std::string& inside) const;
  void Remove(const std::string& inside) const;
  [[nodiscard]] struct stat Status(const std::string& inside) const;
  void SetTime(const std::string& inside, std::time_t modified) const;
  /// The names in a directory, sorted; empty if it does not exist.
  [[nodiscard]] std::vector<std::string> List(const std::string& inside) const;

  /// Writes a photo to the photo directory, dated kPhotoTime; returns its path.
  std::string AddPhoto(const std::string& name, const std::string& content) const;
  /// The same, with a small valid JPEG file.
  std::string AddPhoto(const std::string& name) const;

  // The machine.
  void UseProfile(const std::string& content) const { Write("/conf/profile", content); }
  /// Gives a stand-in ("convert-thumb", "convert", "djpeg", "dcraw", "compare") this script.
  void Script(const std::string& name, const std::string& script) const;
  /// From now on, uses the machine's own djpeg, dcraw and compare, and our converter, or
  /// ImageMagick's if KELDO_E2E_CONVERTER is "imagemagick".
  void UseRealTools();
  /// Like UseRealTools, but dcraw is a stand-in.
  void UseRealToolsButDcraw();
  /// Uses the stand-ins again.
  void UseStandIns();
  void InstallCodecPackage() const;
  void SetEnvironment(const std::string& name, const std::string& value);
  void SetTotalMemory(long kib);
  /// Starts or replaces the daemon.
  void StartDaemon(ScriptedDaemon::Answer answer);
  /// Stops the daemon. Its socket file stays.
  void StopDaemon() { daemon_.reset(); }

  /// Makes a directory or file read-only for the program.
  void MountReadOnly(const std::string& inside);
  /// Mounts an empty memory file system of this size. After a run, its contents are in
  /// KeptDirectory(inside).
  void MountMemory(const std::string& inside, std::size_t bytes);
  [[nodiscard]] static std::string KeptDirectory(const std::string& inside);
  /// Mounts one path inside the sandbox over another.
  void MountOver(const std::string& from, const std::string& to);

 private:
  friend class Running;

  [[nodiscard]] std::vector<std::string> Command(const std::vector<std::string>& arguments,
                                                 std::optional<SignalAt> signal_at) const;
  void AppendTools(std::vector<std::string>& command) const;
  void PrepareKept() const;

  TempDir scratch_;
  LogCollector log_;
  std::unique_ptr<ScriptedDaemon> daemon_;
  bool real_tools_ = false;
  bool real_dcraw_ = false;
  std::map<std::string, std::string> environment_;
  std::vector<std::string> mounts_;
  std::vector<std::string> kept_;
};

}  // namespace keldo::testing
