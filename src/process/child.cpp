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
#include <string_view>
#include <utility>

#include "util/files.h"
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
  const ChildPlan& plan;
  char* const* argv;
  char* const* environment;
  pid_t parent;
  int null_fd;
  int fd_limit;
  sigset_t our_mask;
  volatile int error = 0;
};

// A copy of `from` that no standard descriptor's number can overwrite; of `null_fd` where there is
// no `from`, since our own caller closed it or since the plan says so. -1 with errno set when there
// is none.
int CopyAside(int from, int null_fd) {
  const int copy = fcntl(from, F_DUPFD_CLOEXEC, kFirstPrivateFd);
  return copy < 0 && errno == EBADF ? fcntl(null_fd, F_DUPFD_CLOEXEC, kFirstPrivateFd) : copy;
}

// All three are set aside before the first is put in its place: any of them may have one of the
// numbers 0 to 2 itself. The copies go with exec.
bool InstallStandardDescriptors(const Prepared& prepared) {
  const int input = CopyAside(prepared.plan.stdin_fd, prepared.null_fd);
  const int output = CopyAside(prepared.plan.stdout_fd, prepared.null_fd);
  const int errors = CopyAside(prepared.plan.stderr_fd, prepared.null_fd);
  return input >= 0 && output >= 0 && errors >= 0 && dup2(input, STDIN_FILENO) >= 0 &&
         dup2(output, STDOUT_FILENO) >= 0 && dup2(errors, STDERR_FILENO) >= 0;
}

void ClosePrivateFds(int fd_limit) {
  if (syscall(SYS_close_range, kFirstPrivateFd, kLastFd, 0) == 0) return;
  for (int fd = kFirstPrivateFd; fd < fd_limit; ++fd)
    close(fd);
}

// exec would do the same with our handlers, but until then they must not run in the child.
void SetSignals(const Prepared& prepared) {
  struct sigaction by_default {};
  by_default.sa_handler = SIG_DFL;
  sigset_t mask;
  sigemptyset(&mask);
  if (prepared.plan.in_our_place) mask = prepared.our_mask;
  for (int signal = 1; signal <= SIGRTMAX; ++signal) {
    struct sigaction ours {};
    sigaction(signal, nullptr, &ours);
    const bool stays_ignored =
        prepared.plan.in_our_place && ours.sa_handler == SIG_IGN && signal != SIGPIPE;
    if (ours.sa_handler != SIG_DFL && !stays_ignored) sigaction(signal, &by_default, nullptr);
  }
  sigprocmask(SIG_SETMASK, &mask, nullptr);
}

// What every child does first. False when the parent has gone before it took effect.
bool DieWith(pid_t parent) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  return getppid() == parent;
}

[[noreturn]] void BecomeProgram(Prepared& prepared) {
  if (!prepared.plan.in_our_place) setpgid(0, 0);
  if (!DieWith(prepared.parent)) _exit(kNotStarted);
  if (InstallStandardDescriptors(prepared)) {
    if (!prepared.plan.in_our_place) ClosePrivateFds(prepared.fd_limit);
    SetSignals(prepared);
    execve(prepared.plan.program.c_str(), prepared.argv, prepared.environment);
  }
  prepared.error = errno;
  _exit(kNotStarted);
}

// Starts the child with every signal held back, so that no handler of ours runs in it while it
// shares our memory. Its cost does not grow with our size.
pid_t StartChild(Prepared& prepared) {
  sigset_t all;
  sigfillset(&all);
  sigprocmask(SIG_SETMASK, &all, &prepared.our_mask);
  const pid_t pid = vfork();  // NOLINT(clang-analyzer-security.insecureAPI.vfork)
  // It makes system calls only, and ends in exec or _exit.
  // NOLINTNEXTLINE(clang-analyzer-unix.Vfork)
  if (pid == 0) BecomeProgram(prepared);
  const int error = errno;
  sigprocmask(SIG_SETMASK, &prepared.our_mask, nullptr);
  errno = error;
  return pid;
}

int FdLimit() {
  rlimit limit{};
  if (getrlimit(RLIMIT_NOFILE, &limit) != 0) return static_cast<int>(kMostFdsClosed);
  return static_cast<int>(std::min(limit.rlim_cur, kMostFdsClosed));
}

// To be called before a child is forked: whoever started this program with SIGCHLD ignored passed
// that on, and the kernel would then throw our children's exit statuses away.
void KeepExitStatuses() {
  struct sigaction current {};
  sigaction(SIGCHLD, nullptr, &current);
  if (current.sa_handler == SIG_IGN || (current.sa_flags & SA_NOCLDWAIT) != 0) {
    std::signal(SIGCHLD, SIG_DFL);
  }
}

std::vector<char*> PointersTo(const std::vector<std::string>& texts) {
  std::vector<char*> pointers;
  pointers.reserve(texts.size() + 1);
  for (const std::string& text : texts)
    pointers.push_back(const_cast<char*>(text.c_str()));
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
  const std::string path = "/proc/" + number + "/task/" + number + "/children";
  const std::string list = ReadRegularFile(path.c_str()).value_or("");
  std::vector<pid_t> children;
  const char* rest = list.c_str();
  char* end = nullptr;
  for (long child = std::strtol(rest, &end, 10); end != rest; child = std::strtol(rest, &end, 10)) {
    children.push_back(static_cast<pid_t>(child));
    rest = end;
  }
  return children;
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

void DefaultAndUnblock(std::initializer_list<int> signals) {
  for (const int signal : signals)
    std::signal(signal, SIG_DFL);
  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);
}

std::optional<Child> Child::Start(const ChildPlan& plan, int& error) {
  const UniqueFd null_fd(open("/dev/null", O_RDWR | O_CLOEXEC));
  if (!null_fd.valid()) {
    error = errno;
    return std::nullopt;
  }
  KeepExitStatuses();
  const std::vector<char*> argv = PointersTo(plan.arguments);
  const std::vector<char*> variables =
      plan.environment ? PointersTo(*plan.environment) : std::vector<char*>();
  Prepared prepared{plan,     argv.data(),   plan.environment ? variables.data() : environ,
                    getpid(), null_fd.get(), FdLimit(),
                    {}};
  const pid_t pid = StartChild(prepared);
  if (pid < 0) {
    error = errno;
    return std::nullopt;
  }
  Child child(pid, plan.in_our_place ? Group::kOurs : Group::kItsOwn);
  if (prepared.error != 0) {
    error = prepared.error;
    return std::nullopt;
  }
  return child;
}

std::optional<Child> Child::Fork(Group group, const std::function<int()>& work) {
  const pid_t parent = getpid();
  KeepExitStatuses();
  const pid_t pid = fork();
  if (pid == 0) {
    if (group == Group::kItsOwn) setpgid(0, 0);
    _exit(DieWith(parent) ? work() : kNotStarted);
  }
  if (pid < 0) return std::nullopt;
  // The copy does this too: whichever comes first, the group exists before it is needed.
  if (group == Group::kItsOwn) setpgid(pid, pid);
  return Child(pid, group);
}

Child::Child(pid_t pid, Group group)
    : pid_(pid),
      group_(group),
      pidfd_(group == Group::kItsOwn ? static_cast<int>(syscall(SYS_pidfd_open, pid, 0)) : -1) {}

Child::Child(Child&& other) noexcept
    : pid_(std::exchange(other.pid_, -1)), group_(other.group_), pidfd_(std::move(other.pidfd_)) {}

Child::~Child() {
  if (pid_ <= 0) return;
  Kill();
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

void Child::Kill() const {
  kill(group_ == Group::kItsOwn ? -pid_ : pid_, SIGKILL);
}

void Child::KillWithChildren() const {
  if (pid_ <= 0) return;
  kill(pid_, SIGSTOP);
  WaitForStop(pid_);
  for (const pid_t child : ChildrenOf(pid_))
    kill(-child, SIGKILL);
  Kill();
}

int Child::KillAndReap() {
  Kill();
  // One that sleeps in a dead network volume dies when that answers; SIGTERM does not wait for it.
  while (!WaitUntil(Clock::now() + std::chrono::hours(1))) {
  }
  return Reap();
}

int Child::Reap() {
  int status = -1;
  while (waitpid(pid_, &status, 0) < 0) {
    if (errno != EINTR) break;
  }
  pid_ = -1;
  return status;
}

}  // namespace keldo::process
