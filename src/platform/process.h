// Child processes and the process table: starting programs without a shell, stopping them by name,
// and this program's pid file.
#pragma once

#include <cstdio>
#include <memory>

namespace KELDOUtils {

/// One child process: a program and its argument vector, started and awaited by run().
///
/// No shell is involved, so no character of an argument has a meaning. The child reads /dev/null,
/// inherits descriptors 0 to 2 only, has every signal at its default and unblocked, leads a process
/// group of its own and dies with this process.
class ProcessRunner {
 public:
  /// `program` is the absolute path that is executed, `argv0` the first entry of the argument
  /// vector. The further arguments are appended as by addArguments.
  ProcessRunner(const char* program, const char* argv0, const char* a1 = nullptr,
                const char* a2 = nullptr, const char* a3 = nullptr);
  ~ProcessRunner();
  ProcessRunner(const ProcessRunner&) = delete;
  ProcessRunner& operator=(const ProcessRunner&) = delete;

  /// Appends the strings in order; the first null pointer ends the list.
  void addArguments(const char* a1, const char* a2 = nullptr, const char* a3 = nullptr,
                    const char* a4 = nullptr, const char* a5 = nullptr, const char* a6 = nullptr,
                    const char* a7 = nullptr, const char* a8 = nullptr, const char* a9 = nullptr);

  /// Starts the program and waits for its end; termination requests are let in meanwhile.
  ///
  /// Callers pass (true, false): wait for the child, keep its output attached to ours. Returns 0
  /// only for a normal exit with status 0. A program that cannot be started, ends otherwise, or
  /// outlives the deadline (its whole group is then killed) gives a non-zero value and one log
  /// line.
  [[nodiscard]] int run(bool wait, bool detach_output);

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace KELDOUtils

/// Starts `path` with the argument vector (path, then the strings up to the terminating null
/// pointer) and returns a stream on what it writes.
///
/// `mode`: "r" and "rB" read standard output, "rE" reads standard error; the other of the two goes
/// to /dev/null. The child is set up as by ProcessRunner. Nothing ends it while the stream is open:
/// a reader that must not hang with it waits on the stream's descriptor with a deadline of its own.
/// Null when the program cannot be started (silent). Close the stream with KLIBCPclose only.
FILE* KLIBCPopen(const char* path, const char* mode, ...) __attribute__((sentinel));

/// Closes a stream of KLIBCPopen and reaps the child. One that still runs a moment after its output
/// was closed, or past the deadline of ProcessRunner, is killed with its group. Returns the wait
/// status, -1 for a stream that KLIBCPopen did not make.
int KLIBCPclose(FILE* stream);

/// Stops every process whose command name is `name` (compared at the kernel's length of 15 bytes):
/// SIGKILL for `signal` 0, else that signal. Never this process itself. Where such a process is our
/// child and leads a process group, the group goes with it. Returns the number of processes
/// signalled. Safe to call from a termination handler that was let in at a safe point.
int KLIBCKill(const char* name, int signal);

/// Writes this process's id in decimal and a newline to `path`, mode 0644, replacing what an
/// earlier run left. Never writes through a symbolic link. Returns 0 on success, -1 with errno set.
int KLIBCProcPidFileCreate(const char* path);
