#include "process/output.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <limits>
#include <system_error>

#include "process/child.h"
#include "util/handles.h"
#include "util/termination.h"
#include "util/text.h"

namespace keldo::process {
namespace {

constexpr std::size_t kBlockSize = 4096;
constexpr std::size_t kLongestText = 1U << 20U;
constexpr int kSignalled = 128;

int StatusOf(int wait_status) {
  if (WIFEXITED(wait_status)) return WEXITSTATUS(wait_status);
  return kSignalled + WTERMSIG(wait_status);
}

// Reads to the end of the output, and leaves out what is too much. False at the deadline.
bool ReadText(StreamReader& reader, std::string& text) {
  std::array<char, kBlockSize> block{};
  while (true) {
    const ssize_t count = reader.Read(block);
    if (count <= 0) return count == 0;
    if (text.size() < kLongestText) text.append(block.data(), static_cast<std::size_t>(count));
  }
}

}  // namespace

StreamReader::StreamReader(FILE* stream)
    : StreamReader(fileno(stream), Clock::now() + ChildDeadline()) {}

ssize_t StreamReader::Read(std::span<char> block) {
  pollfd event{fd_, POLLIN, 0};
  while (true) {
    const int left = MillisecondsUntil(deadline_);
    if (left == 0) return -1;
    const int ready = WaitForEvents({&event, 1}, left);
    const ssize_t count = ready > 0 ? read(fd_, block.data(), block.size()) : -1;
    if (count >= 0 || (ready != 0 && errno != EINTR)) return count;
  }
}

std::optional<std::string> StreamReader::ReadLine(std::size_t longest) {
  std::array<char, kBlockSize> block{};
  std::size_t newline = unread_.find('\n');
  while (newline == std::string::npos && unread_.size() < longest) {
    const ssize_t count = Read(block);
    if (count <= 0) break;
    unread_.append(block.data(), static_cast<std::size_t>(count));
    newline = unread_.find('\n');
  }
  const std::size_t whole = newline == std::string::npos ? unread_.size() : newline + 1;
  std::string line = unread_.substr(0, std::min(whole, longest));
  unread_.erase(0, line.size());
  return line.empty() ? std::nullopt : std::optional(std::move(line));
}

std::optional<int> TakeInteger(std::string_view& text) {
  text.remove_prefix(std::min(text.find_first_not_of(kWhiteSpace), text.size()));
  const bool is_negative = text.starts_with('-');
  if (text.starts_with('+') && !text.starts_with("+-")) text.remove_prefix(1);
  long number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error == std::errc::invalid_argument) return std::nullopt;
  using Limits = std::numeric_limits<long>;
  if (error != std::errc()) number = is_negative ? Limits::min() : Limits::max();
  text.remove_prefix(static_cast<std::size_t>(end - text.data()));
  return static_cast<int>(number);
}

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
  if (pipe2(ends.data(), O_CLOEXEC) != 0) {
    output.problem = std::strerror(errno);
    return output;
  }
  const UniqueFd reading(ends[0]);
  UniqueFd writing(ends[1]);
  ChildPlan plan{program, {program}};
  plan.arguments.insert(plan.arguments.end(), arguments.begin(), arguments.end());
  plan.stdout_fd = writing.get();
  plan.stderr_fd = writing.get();
  int error = 0;
  std::optional<Child> child = Child::Start(plan, error);
  writing.reset();
  if (!child) {
    output.problem = std::strerror(error);
    return output;
  }
  const Clock::time_point end = Clock::now() + deadline;
  StreamReader reader(reading.get(), end);
  // It may close its output and run on.
  const bool ended = ReadText(reader, output.text) && child->WaitUntil(end);
  output.status = StatusOf(child->KillAndReap());
  if (!ended) output.problem = "does not come to an end";
  return output;
}

}  // namespace keldo::process
