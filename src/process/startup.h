// The signals that end a program, as something that can be waited for.
#pragma once

#include "util/handles.h"

namespace keldo::process {

/// From its construction on, SIGTERM, SIGINT and SIGHUP make a descriptor readable instead of
/// ending the process. One object a process. Throws std::system_error where the system refuses.
class StopSignals {
 public:
  StopSignals();
  ~StopSignals();
  StopSignals(const StopSignals&) = delete;
  StopSignals& operator=(const StopSignals&) = delete;

  /// Readable from the first signal on.
  [[nodiscard]] int fd() const { return event_.get(); }

 private:
  UniqueFd event_;
};

}  // namespace keldo::process
