// What a program sets up before anything else.
#pragma once

#include "util/handles.h"

namespace keldo::process {

/// Opens /dev/null for each of the descriptors 0 to 2 that is closed, so that no file of ours gets
/// one of these numbers and is written to as standard error.
void EnsureStandardDescriptors();

/// While it lives, SIGTERM, SIGINT and SIGHUP make a descriptor readable instead of ending the
/// process. At most one object per process. Throws std::system_error where the system refuses.
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
