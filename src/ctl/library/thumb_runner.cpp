#include "ctl/library/thumb_runner.h"

#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <optional>
#include <utility>

namespace keldo::ctl {
namespace {

constexpr int kLowestPriority = 19;
constexpr int kIoprioWhoProcess = 1;
constexpr int kIoprioIdle = 3 << 13;

constexpr Clock::time_point kPast{};

}  // namespace

void YieldToOthers(pid_t pid) {
  static_cast<void>(setpriority(PRIO_PROCESS, static_cast<id_t>(pid), kLowestPriority));
  static_cast<void>(syscall(SYS_ioprio_set, kIoprioWhoProcess, pid, kIoprioIdle));
}

std::string TextOfStatus(int status) {
  if (!WIFSIGNALED(status)) {
    return "keldothumb ended with status " + std::to_string(WEXITSTATUS(status));
  }
  return "keldothumb was killed by signal " + std::to_string(WTERMSIG(status)) + " (" +
         ::strsignal(WTERMSIG(status)) + ")";
}

ThumbRunner::ThumbRunner(ThumbProgram program) : program_(std::move(program)) {}

int ThumbRunner::Start(const std::string& directory) {
  process::ChildPlan plan{program_.path, {program_.path, program_.profile_path, directory}};
  plan.stdout_fd = process::ChildPlan::kDevNull;
  plan.stderr_fd = program_.show_messages ? STDERR_FILENO : process::ChildPlan::kDevNull;
  int error = 0;
  std::optional<process::Child> child = process::Child::Start(plan, error);
  if (!child) return error;
  if (program_.nice) YieldToOthers(child->pid());
  running_.push_back({std::move(*child), directory});
  return 0;
}

void ThumbRunner::AddEvents(std::vector<pollfd>& events) const {
  for (const Running& run : running_)
    events.push_back({run.child.pidfd(), POLLIN, 0});
}

bool ThumbRunner::MustPoll() const {
  return std::any_of(running_.begin(), running_.end(),
                     [](const Running& run) { return run.child.pidfd() < 0; });
}

std::vector<std::string> ThumbRunner::Directories() const {
  std::vector<std::string> directories;
  for (const Running& run : running_)
    directories.push_back(run.directory);
  return directories;
}

std::vector<ThumbRunner::Ended> ThumbRunner::CollectEnded() {
  std::vector<Ended> ended;
  for (auto run = running_.begin(); run != running_.end();) {
    if (run->child.WaitUntil(kPast)) {
      ended.push_back({run->directory, run->child.KillAndReap()});
      run = running_.erase(run);
    } else {
      ++run;
    }
  }
  return ended;
}

void ThumbRunner::StopAll() {
  for (const Running& run : running_)
    run.child.KillWithChildren();
  running_.clear();
}

}  // namespace keldo::ctl
