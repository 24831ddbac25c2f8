// The keldothumb processes of a watch.
#pragma once

#include <poll.h>

#include <chrono>
#include <ctime>
#include <list>
#include <string>
#include <vector>

#include "process/child.h"

namespace keldo::ctl {

/// Runs keldothumb over single directories, several at once.
class ThumbRunner {
 public:
  /// A run that has ended.
  struct Ended {
    std::string directory;
    int status;  ///< As wait(2) gives it.
  };

  /// `show_messages`: pass on what the program writes to standard error.
  ThumbRunner(std::string program, std::string profile_path, bool show_messages);

  /// Starts a run. Returns 0, or the errno value that tells why it could not be started.
  [[nodiscard]] int Start(const std::string& directory);

  /// Adds what becomes readable when a run ends.
  void AddEvents(std::vector<pollfd>& events) const;
  /// True when the system does not tell when a run ends: it has to be looked at now and then.
  [[nodiscard]] bool MustLook() const;
  [[nodiscard]] std::size_t size() const { return running_.size(); }

  /// The runs that have ended since the last call.
  [[nodiscard]] std::vector<Ended> TakeEnded();

  /// Ends all of them, with the converters that they have started.
  void StopAll();

 private:
  struct Running {
    process::Child child;
    std::string directory;
  };

  std::string program_;
  std::string profile_path_;
  bool show_messages_;
  std::list<Running> running_;
};

}  // namespace keldo::ctl
