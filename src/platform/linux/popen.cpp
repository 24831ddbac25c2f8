#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdarg>
#include <cstring>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "media/imagemagick_names.h"
#include "platform/process.h"
#include "process/child.h"
#include "util/deadline.h"
#include "util/handles.h"
#include "util/termination.h"

namespace {

using keldo::Clock;
using keldo::UniqueFd;
using keldo::media::LiteralNames;
using keldo::process::Child;

// A child that has closed its output, or whose reader has seen enough, gets this long to end.
constexpr std::chrono::seconds kGraceAfterClose{2};
constexpr std::size_t kReadSize = 4096;

// What belongs to an open stream besides its descriptor.
struct OpenStream {
  Child child;
  LiteralNames names;
  Clock::time_point deadline;
  std::string unread;  // Bytes that KLIBCPReadLine has read beyond a line's end.
};

// The C stream is all that callers hold, so the rest must be found by it.
std::map<FILE*, OpenStream>& OpenStreams() {
  static std::map<FILE*, OpenStream> streams;
  return streams;
}

// Reads what is there, waiting for it. False at the end of the output and at the deadline.
bool ReadMore(FILE* stream, std::string& unread) {
  if (!KLIBCPWait(stream)) return false;
  std::array<char, kReadSize> block{};
  const ssize_t count = read(fileno(stream), block.data(), block.size());
  if (count <= 0) return false;
  unread.append(block.data(), static_cast<std::size_t>(count));
  return true;
}

}  // namespace

FILE* KLIBCPopen(const char* path, const char* mode, ...) {
  std::vector<std::string> arguments{path};
  va_list list;
  va_start(list, mode);
  for (const char* next = va_arg(list, const char*); next != nullptr;
       next = va_arg(list, const char*)) {
    arguments.emplace_back(next);
  }
  va_end(list);

  std::array<int, 2> ends{-1, -1};
  if (pipe2(ends.data(), O_CLOEXEC) != 0) return nullptr;
  UniqueFd reading(ends[0]);
  const UniqueFd writing(ends[1]);
  const UniqueFd null_fd(open("/dev/null", O_WRONLY | O_CLOEXEC));
  LiteralNames names(path, std::move(arguments));
  if (!null_fd.valid() || names.error() != 0) return nullptr;

  const bool reads_errors = std::strcmp(mode, "rE") == 0;
  int error = 0;
  std::optional<Child> child =
      Child::Start({path, names.arguments(), reads_errors ? null_fd.get() : writing.get(),
                    reads_errors ? writing.get() : null_fd.get()},
                   error);
  if (!child) return nullptr;
  FILE* stream = fdopen(reading.get(), "r");
  if (stream == nullptr) return nullptr;
  static_cast<void>(reading.release());
  OpenStreams().emplace(
      stream,
      OpenStream{
          std::move(*child), std::move(names), Clock::now() + keldo::process::ChildDeadline(), {}});
  return stream;
}

bool KLIBCPWait(FILE* stream) {
  const auto found = OpenStreams().find(stream);
  if (found == OpenStreams().end()) return false;
  pollfd event{fileno(stream), POLLIN, 0};
  while (true) {
    const int left = keldo::MillisecondsUntil(found->second.deadline);
    if (left == 0) {
      found->second.child.KillGroup();
      return false;
    }
    const int ready = keldo::WaitForEvents({&event, 1}, left);
    if (ready > 0) return true;
    if (ready < 0 && errno != EINTR) return false;
  }
}

bool KLIBCPReadLine(FILE* stream, char* line, std::size_t size) {
  const auto found = OpenStreams().find(stream);
  if (found == OpenStreams().end() || size < 2) return false;
  std::string& unread = found->second.unread;
  std::size_t newline = unread.find('\n');
  while (newline == std::string::npos && unread.size() < size - 1 && ReadMore(stream, unread)) {
    newline = unread.find('\n');
  }
  const std::size_t whole = newline == std::string::npos ? unread.size() : newline + 1;
  const std::size_t length = std::min(whole, size - 1);
  std::memcpy(line, unread.data(), length);
  line[length] = '\0';
  unread.erase(0, length);
  return length > 0;
}

int KLIBCPclose(FILE* stream) {
  auto entry = OpenStreams().extract(stream);
  if (entry.empty()) return -1;
  static_cast<void>(std::fclose(stream));
  Child& child = entry.mapped().child;
  static_cast<void>(
      child.WaitUntil(std::min(entry.mapped().deadline, Clock::now() + kGraceAfterClose)));
  return child.KillAndReap();
}
