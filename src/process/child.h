// One child process, from its start to its end.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "util/deadline.h"
#include "util/handles.h"

namespace keldo::process {

/// What to start, and where its output goes.
struct ChildPlan {
  std::string program;
  std::vector<std::string> arguments;  ///< The whole argument vector, argv[0] included.
  int stdout_fd = 1;                   ///< Becomes the child's standard output.
  int stderr_fd = 2;                   ///< Becomes the child's standard error.
};

/// Seconds that a child process may run before it is killed with its group: 600, which no photo
/// comes near, or what the environment variable KELDO_CHILD_DEADLINE_SECONDS says (1 to 86400;
/// anything else is ignored).
[[nodiscard]] std::chrono::seconds ChildDeadline();

/// Opens /dev/null for each of the descriptors 0 to 2 that is closed, so that no file of ours gets
/// one of these numbers and is written to as standard error.
void EnsureStandardDescriptors();

/// Makes sure that the ends of our children are reported to us: whoever started this program with
/// SIGCHLD ignored passed that on, and the kernel would then throw their exit statuses away. To be
/// called before a child is forked.
void KeepExitStatuses();

/// A started child that leads a process group of its own and dies with this process. Destroying it
/// while it runs kills its group.
class Child {
 public:
  /// Starts the program: /dev/null as standard input, no descriptors but 0 to 2, all signals at
  /// their defaults and unblocked. Nothing, with the reason in `error` (an errno value), when it
  /// cannot be started. Silent.
  [[nodiscard]] static std::optional<Child> Start(const ChildPlan& plan, int& error);

  /// Takes charge of a forked process that leads a process group of its own.
  explicit Child(pid_t pid);
  ~Child();
  Child(Child&& other) noexcept;
  Child& operator=(Child&&) = delete;
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;

  /// Waits for the child's end with termination requests let in. False when it still runs at the
  /// deadline.
  [[nodiscard]] bool WaitUntil(Clock::time_point deadline) const;

  /// The child's process id, and a descriptor that is readable from the child's end on; the latter
  /// is -1 on kernels before 5.3.
  [[nodiscard]] pid_t pid() const { return pid_; }
  [[nodiscard]] int pidfd() const { return pidfd_.get(); }

  /// Ends the child's whole group, what it left running included.
  void KillGroup() const;
  /// Ends the child together with the process groups that its own children lead, as those of this
  /// program's runs do. Unlike a termination request it lets the child do nothing any more: it
  /// neither takes its children's end for a failure nor looks for other processes to stop.
  void KillWithChildren() const;
  /// Ends the child's group and returns the child's wait status, with termination requests let in
  /// while the child is dying. To be called once.
  int KillAndReap();

 private:
  int Reap();
  [[nodiscard]] bool HasEnded() const;

  pid_t pid_;
  UniqueFd pidfd_;
};

}  // namespace keldo::process
