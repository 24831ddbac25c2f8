// Running keldothumb over directories.
#pragma once

#include <poll.h>
#include <sys/types.h>

#include <list>
#include <string>
#include <vector>

#include "process/child.h"

namespace keldo::ctl {

/// Gives a process, and what it starts from then on, the lowest processor and disk priority; 0 is
/// this process. If the system refuses, the priority stays as it is.
void YieldToOthers(pid_t pid);

/// What a wait status other than 0 means, in words: "keldothumb was killed by signal 11
/// (Segmentation fault)".
[[nodiscard]] std::string TextOfStatus(int status);

/// Which keldothumb to run, and how.
struct ThumbProgram {
  std::string path;
  std::string profile_path;
  bool nice = false;           ///< At the lowest processor and disk priority.
  bool show_messages = false;  ///< Pass on what it writes to standard error.
};

/// Runs keldothumb over single directories, several at a time.
class ThumbRunner {
 public:
  /// A run that has ended.
  struct Ended {
    std::string directory;
    int status;  ///< As wait(2) returns it.
  };

  explicit ThumbRunner(ThumbProgram program);

  /// Starts a run. Returns 0, or the errno value that says why it could not be started.
  [[nodiscard]] int Start(const std::string& directory);

  /// Adds descriptors that become readable when a run ends.
  void AddEvents(std::vector<pollfd>& events) const;
  /// True when the system does not report the end of a run: it has to be polled.
  [[nodiscard]] bool MustPoll() const;

  /// The directories of the current runs, oldest first.
  [[nodiscard]] std::vector<std::string> Directories() const;
  [[nodiscard]] std::size_t size() const { return running_.size(); }

  /// The runs that have ended since the last call.
  [[nodiscard]] std::vector<Ended> CollectEnded();

  /// Kills all runs together with the converters that they have started. Asked to terminate, a run
  /// would stop every converter on the machine by its name, including those of other runs and other
  /// users, whose photos would then be marked as failed.
  void StopAll();

 private:
  struct Running {
    process::Child child;
    std::string directory;
  };

  ThumbProgram program_;
  std::list<Running> running_;
};

}  // namespace keldo::ctl
