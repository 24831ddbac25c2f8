#include "process/startup.h"

#include <fcntl.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <system_error>

namespace keldo::process {
namespace {

constexpr std::array<int, 3> kStopSignals{SIGTERM, SIGINT, SIGHUP};

// A handler has no other way to know its object.
std::atomic<int> stop_event{-1};
static_assert(std::atomic<int>::is_always_lock_free);

// A handler rather than blocked signals and a signalfd: while the index waits for another process,
// it lets SIGTERM in, which without a handler would end us there and then.
extern "C" void OnStopSignal(int /*signal*/) {
  const int saved_errno = errno;
  const std::uint64_t one = 1;
  // It fails only when the counter is full, and then it is readable.
  [[maybe_unused]] const ssize_t written = ::write(stop_event.load(), &one, sizeof one);
  errno = saved_errno;
}

bool IsIgnored(int signal) {
  struct sigaction action {};
  return ::sigaction(signal, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
}

void HandleStopSignals() {
  struct sigaction action {};
  action.sa_handler = OnStopSignal;
  action.sa_flags = SA_RESTART;
  sigemptyset(&action.sa_mask);
  sigset_t signals;
  sigemptyset(&signals);
  for (const int signal : kStopSignals) {
    // Started by nohup.
    if (signal == SIGHUP && IsIgnored(signal)) continue;
    if (::sigaction(signal, &action, nullptr) != 0) {
      throw std::system_error(errno, std::generic_category(), "sigaction");
    }
    sigaddset(&signals, signal);
  }
  // Whoever started us may have blocked them.
  ::sigprocmask(SIG_UNBLOCK, &signals, nullptr);
}

}  // namespace

void EnsureStandardDescriptors() {
  for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd) {
    // open gives the lowest free number, which is `fd`, since those below it are open by now.
    if (fcntl(fd, F_GETFD) < 0 && open("/dev/null", O_RDWR) < 0) return;  // NOLINT: kept open
  }
}

StopSignals::StopSignals() : event_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
  if (!event_.valid()) throw std::system_error(errno, std::generic_category(), "eventfd");
  stop_event = event_.get();
  HandleStopSignals();
}

// The process is about to end; a late signal ends it at once.
StopSignals::~StopSignals() {
  for (const int signal : kStopSignals) {
    if (!IsIgnored(signal)) std::signal(signal, SIG_DFL);
  }
  stop_event = -1;
}

}  // namespace keldo::process
