#include "ctl/watch/thumb_runner.h"

#include <unistd.h>

#include <optional>
#include <utility>

namespace keldo::ctl {
namespace {

// A time that is past.
constexpr Clock::time_point kAtOnce{};

}  // namespace

ThumbRunner::ThumbRunner(std::string program, std::string profile_path, bool show_messages)
    : program_(std::move(program)),
      profile_path_(std::move(profile_path)),
      show_messages_(show_messages) {}

int ThumbRunner::Start(const std::string& directory) {
  process::ChildPlan plan{program_, {program_, profile_path_, directory}};
  plan.stdout_fd = process::ChildPlan::kDevNull;
  plan.stderr_fd = show_messages_ ? STDERR_FILENO : process::ChildPlan::kDevNull;
  int error = 0;
  std::optional<process::Child> child = process::Child::Start(plan, error);
  if (!child) return error;
  running_.push_back({std::move(*child), directory});
  return 0;
}

void ThumbRunner::AddEvents(std::vector<pollfd>& events) const {
  for (const Running& run : running_)
    events.push_back({run.child.pidfd(), POLLIN, 0});
}

bool ThumbRunner::MustLook() const {
  for (const Running& run : running_) {
    if (run.child.pidfd() < 0) return true;
  }
  return false;
}

std::vector<ThumbRunner::Ended> ThumbRunner::TakeEnded() {
  std::vector<Ended> ended;
  for (auto run = running_.begin(); run != running_.end();) {
    if (run->child.WaitUntil(kAtOnce)) {
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
