#include "process/child.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string_view>
#include <utility>

#include "util/termination.h"

namespace keldo::process {
namespace {

constexpr int kNotStarted = 127;
constexpr int kFirstPrivateFd = 3;
constexpr unsigned kLastFd = ~0U;
// Kernels before 5.9 cannot close a range of descriptors: each one is closed there, up to the limit
// on their number, or up to this one where the limit is beyond all use.
constexpr rlim_t kMostFdsClosed = 65536;
constexpr long kDefaultDeadlineSeconds = 600;
constexpr long kLongestDeadlineSeconds = 86400;
// Kernels before 5.3 have no process descriptors: look at the child this often instead.
constexpr int kLookEveryMs = 20;

// What the child needs, prepared before it exists: between vfork and exec it shares our memory and
// may call nothing that allocates or locks.
struct Prepared {
  const char* program;
  char* const* argv;
  pid_t parent;
  int null_fd;
  int stdout_fd;
  int stderr_fd;
  int fd_limit;
  volatile int error = 0;
};

// A copy of `from` that no standard descriptor's number can overwrite; of `null_fd` where our own
// caller closed `from`. -1 with errno set when there is none.
int CopyAside(int from, int null_fd) {
  const int copy = fcntl(from, F_DUPFD_CLOEXEC, kFirstPrivateFd);
  return copy < 0 && errno == EBADF ? fcntl(null_fd, F_DUPFD_CLOEXEC, kFirstPrivateFd) : copy;
}

// All three are set aside before the first is put in its place: any of them may have one of the
// numbers 0 to 2 itself. The copies go with exec.
bool InstallStandardDescriptors(const Prepared& prepared) {
  const int input = CopyAside(prepared.null_fd, prepared.null_fd);
  const int output = CopyAside(prepared.stdout_fd, prepared.null_fd);
  const int errors = CopyAside(prepared.stderr_fd, prepared.null_fd);
  return input >= 0 && output >= 0 && errors >= 0 && dup2(input, STDIN_FILENO) >= 0 &&
         dup2(output, STDOUT_FILENO) >= 0 && dup2(errors, STDERR_FILENO) >= 0;
}

void ClosePrivateFds(int fd_limit) {
  if (syscall(SYS_close_range, kFirstPrivateFd, kLastFd, 0) == 0) return;
  for (int fd = kFirstPrivateFd; fd < fd_limit; ++fd)
    close(fd);
}

void ResetSignals() {
  struct sigaction by_default {};
  by_default.sa_handler = SIG_DFL;
  for (int signal = 1; signal <= SIGRTMAX; ++signal)
    sigaction(signal, &by_default, nullptr);
  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);
}

[[noreturn]] void BecomeProgram(Prepared& prepared) {
  setpgid(0, 0);
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  // The parent may have gone before the line above took effect.
  if (getppid() != prepared.parent) _exit(kNotStarted);
  if (InstallStandardDescriptors(prepared)) {
    ClosePrivateFds(prepared.fd_limit);
    ResetSignals();
    execve(prepared.program, prepared.argv, environ);
  }
  prepared.error = errno;
  _exit(kNotStarted);
}

// Starts the child with every signal held back, so that no handler of ours runs in it while it
// shares our memory. Its cost does not grow with our size.
pid_t StartChild(Prepared& prepared) {
  sigset_t all;
  sigset_t before;
  sigfillset(&all);
  sigprocmask(SIG_SETMASK, &all, &before);
  const pid_t pid = vfork();  // NOLINT(clang-analyzer-security.insecureAPI.vfork)
  // It makes system calls only, and ends in exec or _exit.
  // NOLINTNEXTLINE(clang-analyzer-unix.Vfork)
  if (pid == 0) BecomeProgram(prepared);
  const int error = errno;
  sigprocmask(SIG_SETMASK, &before, nullptr);
  errno = error;
  return pid;
}

int FdLimit() {
  rlimit limit{};
  if (getrlimit(RLIMIT_NOFILE, &limit) != 0) return static_cast<int>(kMostFdsClosed);
  return static_cast<int>(std::min(limit.rlim_cur, kMostFdsClosed));
}

std::vector<char*> PointersTo(const std::vector<std::string>& arguments) {
  std::vector<char*> pointers;
  pointers.reserve(arguments.size() + 1);
  for (const std::string& argument : arguments)
    pointers.push_back(const_cast<char*>(argument.c_str()));
  pointers.push_back(nullptr);
  return pointers;
}

// Once it is stopped it starts nothing more. One that sleeps in the kernel is not waited for.
void WaitForStop(pid_t pid) {
  constexpr int kLooks = 200;
  constexpr useconds_t kMicrosecondsBetween = 1000;
  for (int look = 0; look < kLooks; ++look) {
    siginfo_t info{};
    const int looked =
        waitid(P_PID, static_cast<id_t>(pid), &info, WSTOPPED | WEXITED | WNOHANG | WNOWAIT);
    if (looked != 0 || info.si_pid == pid) return;
    usleep(kMicrosecondsBetween);
  }
}

std::vector<pid_t> ChildrenOf(pid_t pid) {
  const std::string number = std::to_string(pid);
  std::ifstream list("/proc/" + number + "/task/" + number + "/children");
  return {std::istream_iterator<pid_t>(list), std::istream_iterator<pid_t>()};
}

}  // namespace

std::chrono::seconds ChildDeadline() {
  const char* text = std::getenv("KELDO_CHILD_DEADLINE_SECONDS");
  if (text == nullptr) return std::chrono::seconds(kDefaultDeadlineSeconds);
  const std::string_view digits(text);
  long seconds = 0;
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), seconds);
  const bool usable = error == std::errc() && end == digits.data() + digits.size() &&
                      seconds >= 1 && seconds <= kLongestDeadlineSeconds;
  return std::chrono::seconds(usable ? seconds : kDefaultDeadlineSeconds);
}

void KeepExitStatuses() {
  struct sigaction current {};
  sigaction(SIGCHLD, nullptr, &current);
  if (current.sa_handler == SIG_IGN || (current.sa_flags & SA_NOCLDWAIT) != 0) {
    std::signal(SIGCHLD, SIG_DFL);
  }
}

std::optional<Child> Child::Start(const ChildPlan& plan, int& error) {
  const UniqueFd null_fd(open("/dev/null", O_RDWR | O_CLOEXEC));
  if (!null_fd.valid()) {
    error = errno;
    return std::nullopt;
  }
  KeepExitStatuses();
  const std::vector<char*> argv = PointersTo(plan.arguments);
  Prepared prepared{plan.program.c_str(), argv.data(),    getpid(), null_fd.get(),
                    plan.stdout_fd,       plan.stderr_fd, FdLimit()};
  const pid_t pid = StartChild(prepared);
  if (pid < 0) {
    error = errno;
    return std::nullopt;
  }
  Child child(pid);
  if (prepared.error != 0) {
    error = prepared.error;
    return std::nullopt;
  }
  return child;
}

Child::Child(pid_t pid) : pid_(pid), pidfd_(static_cast<int>(syscall(SYS_pidfd_open, pid, 0))) {}

Child::Child(Child&& other) noexcept
    : pid_(std::exchange(other.pid_, -1)), pidfd_(std::move(other.pidfd_)) {}

Child::~Child() {
  if (pid_ <= 0) return;
  KillGroup();
  static_cast<void>(Reap());
}

bool Child::WaitUntil(Clock::time_point deadline) const {
  while (!HasEnded()) {
    const int left = MillisecondsUntil(deadline);
    if (left == 0) return false;
    if (pidfd_.valid()) {
      pollfd event{pidfd_.get(), POLLIN, 0};
      static_cast<void>(WaitForEvents({&event, 1}, left));
    } else {
      static_cast<void>(WaitForEvents({}, std::min(left, kLookEveryMs)));
    }
  }
  return true;
}

// Looks without reaping: as long as the child's entry is there, its process group's number belongs
// to nobody else.
bool Child::HasEnded() const {
  siginfo_t info{};
  const int looked = waitid(P_PID, static_cast<id_t>(pid_), &info, WEXITED | WNOHANG | WNOWAIT);
  return (looked == 0 && info.si_pid == pid_) || (looked != 0 && errno == ECHILD);
}

void Child::KillGroup() const {
  kill(-pid_, SIGKILL);
}

void Child::KillWithChildren() const {
  if (pid_ <= 0) return;
  kill(pid_, SIGSTOP);
  WaitForStop(pid_);
  for (const pid_t child : ChildrenOf(pid_))
    kill(-child, SIGKILL);
  KillGroup();
}

int Child::KillAndReap() {
  KillGroup();
  // One that sleeps in a dead network volume dies when that answers; SIGTERM does not wait for it.
  while (!WaitUntil(Clock::now() + std::chrono::hours(1))) {
  }
  return Reap();
}

int Child::Reap() {
  int status = -1;
  while (waitpid(pid_, &status, 0) < 0 && errno == EINTR) {
  }
  pid_ = -1;
  return status;
}

}  // namespace keldo::process
