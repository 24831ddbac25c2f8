// One child process, from its start to its end: a program, or a forked copy of this process.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <initializer_list>
#include <optional>
#include <string>
#include <vector>

#include "util/deadline.h"
#include "util/handles.h"

namespace keldo::process {

/// What to start, and how it is tied to this process.
struct ChildPlan {
  /// In place of a descriptor: /dev/null.
  static constexpr int kDevNull = -1;

  std::string program;                 ///< The path that is executed.
  std::vector<std::string> arguments;  ///< The whole argument vector, argv[0] included.
  int stdin_fd = kDevNull;             ///< Becomes the child's standard input.
  int stdout_fd = 1;                   ///< Becomes the child's standard output.
  int stderr_fd = 2;                   ///< Becomes the child's standard error.
  /// "NAME=value" entries in place of our own environment.
  std::optional<std::vector<std::string>> environment = std::nullopt;
  /// Run the program as if it had been started in our place: in our process group, with the
  /// descriptors and the signal settings that exec passes on. SIGPIPE alone is at its default.
  bool in_our_place = false;
};

/// Which process group a forked copy belongs to.
enum class Group { kOurs, kItsOwn };

/// How long a child process may run before it is killed with its group: 600 s, which no photo comes
/// near, or what the environment variable KELDO_CHILD_DEADLINE_SECONDS says (1 to 86400; anything
/// else is ignored).
[[nodiscard]] std::chrono::seconds ChildDeadline();

/// Sets these signals to their defaults, then unblocks all signals. For the start of forked work:
/// whoever started us may have had them ignored or blocked.
void DefaultAndUnblock(std::initializer_list<int> signals);

/// A child that dies with this process. Destroying it while it runs kills it, and with it the
/// process group that it leads. Its exit status reaches us even where whoever started this program
/// passed on that SIGCHLD is ignored.
class Child {
 public:
  /// Starts the program. Unless the plan says otherwise, it leads a process group of its own, has
  /// no descriptors but 0 to 2, and has all signals unblocked and at their defaults. Nothing, with
  /// the reason in `error` (an errno value), when it cannot be started. Silent.
  [[nodiscard]] static std::optional<Child> Start(const ChildPlan& plan, int& error);

  /// Forks a copy of this process that does `work`, then exits with what it returns: no exit
  /// handler runs, no buffer is flushed a second time. `work` must not throw. Nothing, with errno
  /// set, when there is no process for it. Silent.
  [[nodiscard]] static std::optional<Child> Fork(Group group, const std::function<int()>& work);

  ~Child();
  Child(Child&& other) noexcept;
  Child& operator=(Child&&) = delete;
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;

  /// Waits for the child's end with termination requests let in. False when it still runs at the
  /// deadline.
  [[nodiscard]] bool WaitUntil(Clock::time_point deadline) const;

  /// The child's process id, and a descriptor that is readable from the child's end on; the latter
  /// is -1 on kernels before 5.3, and for a child in our own process group.
  [[nodiscard]] pid_t pid() const { return pid_; }
  [[nodiscard]] int pidfd() const { return pidfd_.get(); }

  /// Ends the child and the rest of the group that it leads.
  void Kill() const;
  /// Ends the child together with the process groups that its own children lead, as those of this
  /// program's runs do. Unlike a termination request it lets the child do nothing any more: the
  /// child neither takes its children's end for a failure nor looks for other processes to stop.
  void KillWithChildren() const;
  /// Ends the child as Kill does and returns its wait status, with termination requests let in
  /// while the child is dying. To be called once.
  int KillAndReap();
  /// Waits for the child's end, however long it takes, and returns its wait status; -1 with errno
  /// set when somebody else has taken that. Nothing is killed. To be called once, in place of
  /// KillAndReap.
  [[nodiscard]] int Reap();

 private:
  Child(pid_t pid, Group group);
  [[nodiscard]] bool HasEnded() const;

  pid_t pid_;
  Group group_;
  UniqueFd pidfd_;
};

}  // namespace keldo::process
