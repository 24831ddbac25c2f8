#include "process/isolated.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdlib>
#include <optional>

#include "process/child.h"
#include "process/output.h"
#include "util/files.h"
#include "util/handles.h"

namespace keldo::process {
namespace {

constexpr std::size_t kLongestOutput = 65536;
constexpr std::size_t kReadSize = 4096;
// Stands before the output of work that returned. A crash writes nothing.
constexpr char kReturned = 'R';
constexpr int kDidNotReturn = 125;

// A decoder of the largest photos takes a few hundred MiB; a damaged header may ask for any amount.
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

// The copy's part: what it exits with.
int WorkInCopy(const std::function<int(std::string&)>& work, int out) {
  DefaultAndUnblock({SIGTERM});
  LimitResources();
  // A library that calls exit gets no further than this: behind it stand our parent's buffers, and
  // destructors that would end our parent's children.
  if (std::atexit([] { _exit(kDidNotReturn); }) != 0) return kDidNotReturn;
  try {
    std::string output;
    const int status = work(output);
    output.resize(std::min(output.size(), kLongestOutput));
    output.insert(output.begin(), kReturned);
    return WriteAll(out, output) ? status : kDidNotReturn;
  } catch (...) {
    return kDidNotReturn;
  }
}

// Everything the copy writes until it closes its end. False when the deadline came first, and for
// more than an intact copy writes.
bool ReadUntilEnd(StreamReader reader, std::string& text) {
  std::array<char, kReadSize> block{};
  while (text.size() <= kLongestOutput + sizeof(kReturned)) {
    const ssize_t count = reader.Read(block);
    if (count <= 0) return count == 0;
    text.append(block.data(), static_cast<std::size_t>(count));
  }
  return false;
}

}  // namespace

IsolatedResult RunIsolated(const std::function<int(std::string& output)>& work) {
  IsolatedResult result;
  std::array<int, 2> ends{-1, -1};
  if (pipe2(ends.data(), O_CLOEXEC) != 0) return result;
  const UniqueFd reading(ends[0]);
  UniqueFd writing(ends[1]);
  std::optional<Child> copy =
      Child::Fork(Group::kItsOwn, [&] { return WorkInCopy(work, writing.get()); });
  if (!copy) return result;
  writing.reset();
  const Clock::time_point deadline = Clock::now() + ChildDeadline();
  std::string text;
  const bool ended = ReadUntilEnd({reading.get(), deadline}, text) && copy->WaitUntil(deadline);
  const int status = copy->KillAndReap();
  if (!ended || !WIFEXITED(status) || text.empty() || text.front() != kReturned) return result;
  result.finished = true;
  result.status = WEXITSTATUS(status);
  result.output = text.substr(1);
  return result;
}

}  // namespace keldo::process
