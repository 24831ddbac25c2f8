// Children that try what a sandbox forbids.
#pragma once

#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <functional>

namespace keldo::testing {

/// The exit status of a child that should have been stopped by a signal but was not.
inline constexpr int kNotStopped = 99;

/// Does this in a child and returns how it ended: its exit status, or the signal as a negative
/// number.
inline int InChild(const std::function<int()>& work) {
  const pid_t child = fork();
  if (child == 0) {
    // In case it hangs.
    alarm(30);
    _exit(work());
  }
  int status = 0;
  if (waitpid(child, &status, 0) != child) return kNotStopped;
  return WIFSIGNALED(status) ? -WTERMSIG(status) : WEXITSTATUS(status);
}

/// errno after a call that failed, 0 otherwise.
inline int ErrorOf(long result) {
  return result < 0 ? errno : 0;
}

}  // namespace keldo::testing
