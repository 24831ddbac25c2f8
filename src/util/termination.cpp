#include "util/termination.h"

#include <cerrno>
#include <csignal>

namespace keldo {
namespace {

sigset_t OnlyTermination() {
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, SIGTERM);
  return set;
}

}  // namespace

void HoldTermination() {
  const sigset_t termination = OnlyTermination();
  sigprocmask(SIG_BLOCK, &termination, nullptr);
}

void LetTerminationIn() {
  sigset_t pending;
  sigpending(&pending);
  if (sigismember(&pending, SIGTERM) != 1) return;
  const int saved_errno = errno;
  const sigset_t termination = OnlyTermination();
  sigset_t before;
  sigprocmask(SIG_UNBLOCK, &termination, &before);
  sigprocmask(SIG_SETMASK, &before, nullptr);
  errno = saved_errno;
}

int WaitForEvents(std::span<pollfd> events, int timeout_ms) {
  sigset_t mask;
  sigprocmask(SIG_SETMASK, nullptr, &mask);
  sigdelset(&mask, SIGTERM);
  constexpr int kMsPerSecond = 1000;
  constexpr long kNsPerMs = 1000000;
  const timespec timeout{timeout_ms / kMsPerSecond, (timeout_ms % kMsPerSecond) * kNsPerMs};
  return ppoll(events.data(), events.size(), timeout_ms < 0 ? nullptr : &timeout, &mask);
}

}  // namespace keldo
