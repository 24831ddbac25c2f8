#include "process/isolated.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <string_view>

#include "process/child.h"
#include "util/handles.h"
#include "util/termination.h"

namespace keldo::process {
namespace {

constexpr std::size_t kLongestOutput = 65536;
constexpr std::size_t kReadSize = 4096;
// Stands before the output of work that returned. A crash writes nothing.
constexpr char kReturned = 'R';
constexpr int kDidNotReturn = 125;

// A decoder of the largest photos takes a few hundred MiB; a damaged header asks for anything.
constexpr rlim_t kLeastMemoryLimit = rlim_t{3} << 29;

[[maybe_unused]] rlim_t MemoryLimit() {
  const auto total =
      static_cast<rlim_t>(sysconf(_SC_PHYS_PAGES)) * static_cast<rlim_t>(sysconf(_SC_PAGESIZE));
  return std::max(kLeastMemoryLimit, total / 4 * 3);
}

void LimitResources() {
  const rlimit no_core{0, 0};
  setrlimit(RLIMIT_CORE, &no_core);
#if !defined(__SANITIZE_ADDRESS__)  // Its shadow memory alone is larger than any limit.
  const rlimit memory{MemoryLimit(), MemoryLimit()};
  setrlimit(RLIMIT_AS, &memory);
#endif
}

void LetTerminationKill() {
  std::signal(SIGTERM, SIG_DFL);
  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);
}

// Writes all of `text`; the reader is our parent, which reads until the end.
bool WriteAll(int fd, std::string_view text) {
  while (!text.empty()) {
    const ssize_t count = write(fd, text.data(), text.size());
    if (count < 0 && errno != EINTR) return false;
    if (count > 0) text.remove_prefix(static_cast<std::size_t>(count));
  }
  return true;
}

[[noreturn]] void WorkInCopy(const std::function<int(std::string&)>& work, pid_t parent, int out) {
  setpgid(0, 0);
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (getppid() != parent) _exit(kDidNotReturn);
  LetTerminationKill();
  LimitResources();
  // A library that calls exit gets no further than this: behind it stand our parent's buffers, and
  // destructors that would end our parent's children.
  if (std::atexit([] { _exit(kDidNotReturn); }) != 0) _exit(kDidNotReturn);
  try {
    std::string output;
    const int status = work(output);
    output.resize(std::min(output.size(), kLongestOutput));
    output.insert(output.begin(), kReturned);
    // Not exit: what the parent registered to be done at its end is not ours to do.
    _exit(WriteAll(out, output) ? status : kDidNotReturn);
  } catch (...) {
    _exit(kDidNotReturn);
  }
}

// Everything the copy writes until it closes its end. False when the deadline came first, and for
// more than an intact copy writes.
bool ReadUntilEnd(int fd, Clock::time_point deadline, std::string& text) {
  std::array<char, kReadSize> block{};
  pollfd event{fd, POLLIN, 0};
  while (true) {
    const int left = MillisecondsUntil(deadline);
    if (left == 0) return false;
    if (WaitForEvents({&event, 1}, left) <= 0) continue;
    const ssize_t count = read(fd, block.data(), block.size());
    if (count == 0) return true;
    if (count > 0) text.append(block.data(), static_cast<std::size_t>(count));
    if ((count < 0 && errno != EINTR) || text.size() > kLongestOutput + sizeof(kReturned)) {
      return false;
    }
  }
}

}  // namespace

IsolatedResult RunIsolated(const std::function<int(std::string& output)>& work) {
  IsolatedResult result;
  std::array<int, 2> ends{-1, -1};
  if (pipe2(ends.data(), O_CLOEXEC) != 0) return result;
  const UniqueFd reading(ends[0]);
  UniqueFd writing(ends[1]);
  const pid_t parent = getpid();
  KeepExitStatuses();
  const pid_t pid = fork();
  if (pid < 0) return result;
  if (pid == 0) WorkInCopy(work, parent, writing.get());
  // Also done by the copy; whichever comes first, the group exists before it is needed.
  setpgid(pid, pid);
  writing.reset();
  Child copy(pid);
  const Clock::time_point deadline = Clock::now() + ChildDeadline();
  std::string text;
  const bool ended = ReadUntilEnd(reading.get(), deadline, text) && copy.WaitUntil(deadline);
  const int status = copy.KillAndReap();
  if (!ended || !WIFEXITED(status) || text.empty() || text.front() != kReturned) return result;
  result.finished = true;
  result.status = WEXITSTATUS(status);
  result.output = text.substr(1);
  return result;
}

}  // namespace keldo::process
