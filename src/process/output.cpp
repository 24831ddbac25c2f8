#include "process/output.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <optional>
#include <string_view>
#include <utility>

#include "process/child.h"
#include "util/deadline.h"
#include "util/handles.h"
#include "util/termination.h"
#include "util/text.h"

namespace keldo::ctl {
namespace {

constexpr std::size_t kLongestText = 1U << 20U;
constexpr int kSignalled = 128;

// Reads to the end of the stream, or to the deadline: false.
bool ReadUntil(int fd, Clock::time_point deadline, std::string& text) {
  std::array<char, 4096> block{};
  while (true) {
    pollfd event{fd, POLLIN, 0};
    const int left = MillisecondsUntil(deadline);
    if (left == 0) return false;
    if (WaitForEvents({&event, 1}, left) <= 0) continue;
    const ssize_t count = ::read(fd, block.data(), block.size());
    if (count <= 0) return true;
    if (text.size() < kLongestText) text.append(block.data(), static_cast<std::size_t>(count));
  }
}

int StatusOf(int wait_status) {
  if (WIFEXITED(wait_status)) return WEXITSTATUS(wait_status);
  return kSignalled + WTERMSIG(wait_status);
}

}  // namespace

std::string ProgramOutput::FirstLine() const {
  for (std::string_view rest = text; !rest.empty();) {
    const std::string_view line = TakeLine(rest);
    if (!line.empty()) return std::string(line);
  }
  return {};
}

ProgramOutput RunForOutput(const std::string& program, const std::vector<std::string>& arguments,
                           std::chrono::milliseconds deadline) {
  ProgramOutput output;
  std::array<int, 2> ends{};
  if (::pipe2(ends.data(), O_CLOEXEC) != 0) {
    output.problem = std::strerror(errno);
    return output;
  }
  const UniqueFd reader(ends[0]);
  UniqueFd writer(ends[1]);
  process::ChildPlan plan{program, {program}};
  plan.arguments.insert(plan.arguments.end(), arguments.begin(), arguments.end());
  plan.stdout_fd = writer.get();
  plan.stderr_fd = writer.get();
  int error = 0;
  process::KeepExitStatuses();
  std::optional<process::Child> child = process::Child::Start(plan, error);
  writer.reset();
  if (!child) {
    output.problem = std::strerror(error);
    return output;
  }
  const Clock::time_point end = Clock::now() + deadline;
  // It may close its output and run on.
  const bool ended = ReadUntil(reader.get(), end, output.text) && child->WaitUntil(end);
  output.status = StatusOf(child->KillAndReap());
  if (!ended) output.problem = "does not come to an end";
  return output;
}

}  // namespace keldo::ctl
