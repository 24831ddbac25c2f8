#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
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
#include "util/handles.h"

namespace {

using keldo::Clock;
using keldo::UniqueFd;
using keldo::media::LiteralNames;
using keldo::process::Child;
using keldo::process::ChildPlan;

// A child that has closed its output, or whose reader has seen enough, gets this long to end.
constexpr std::chrono::seconds kGraceAfterClose{2};

// What belongs to an open stream besides its descriptor.
struct OpenStream {
  Child child;
  LiteralNames names;
  Clock::time_point deadline;
};

// Callers hold nothing but the C stream, so the rest is found by it.
std::map<FILE*, OpenStream>& OpenStreams() {
  static std::map<FILE*, OpenStream> streams;
  return streams;
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
  LiteralNames names(path, std::move(arguments));
  if (names.error() != 0) return nullptr;

  ChildPlan plan{path, names.arguments()};
  const bool reads_errors = std::strcmp(mode, "rE") == 0;
  plan.stdout_fd = reads_errors ? ChildPlan::kDevNull : writing.get();
  plan.stderr_fd = reads_errors ? writing.get() : ChildPlan::kDevNull;
  int error = 0;
  std::optional<Child> child = Child::Start(plan, error);
  if (!child) return nullptr;
  FILE* stream = fdopen(reading.get(), "r");
  if (stream == nullptr) return nullptr;
  static_cast<void>(reading.release());
  OpenStreams().emplace(stream, OpenStream{std::move(*child), std::move(names),
                                           Clock::now() + keldo::process::ChildDeadline()});
  return stream;
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
