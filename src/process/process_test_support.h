// What the tests of processes share: forked copies, and how a process ended.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "platform/process.h"

namespace keldo::testing {

inline std::string ReadFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

inline void WriteFile(const std::string& path, std::string_view content) {
  std::ofstream(path, std::ios::binary) << content;
}

/// Sets an environment variable while it lives.
class ScopedEnvironment {
 public:
  ScopedEnvironment(const char* name, const char* value) : name_(name) { ::setenv(name, value, 1); }
  ~ScopedEnvironment() { ::unsetenv(name_); }
  ScopedEnvironment(const ScopedEnvironment&) = delete;
  ScopedEnvironment& operator=(const ScopedEnvironment&) = delete;

 private:
  const char* name_;
};

/// The shortest deadline that children can have.
class OneSecondDeadline : public ScopedEnvironment {
 public:
  OneSecondDeadline() : ScopedEnvironment("KELDO_CHILD_DEADLINE_SECONDS", "1") {}
};

/// Runs a shell script with $1, $2 and so on through the ProcessRunner.
inline int RunShell(const std::string& script, const std::vector<std::string>& arguments = {}) {
  KELDOUtils::ProcessRunner runner("/bin/sh", "sh", "-c", script.c_str(), "sh");
  for (const std::string& argument : arguments)
    runner.addArguments(argument.c_str());
  return runner.run(true, false);
}

/// The seconds since this was made.
class Stopwatch {
 public:
  [[nodiscard]] double Seconds() const {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count();
  }

 private:
  std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};

/// Waits, at most ten seconds, until `holds` does.
template <typename Condition>
bool Eventually(const Condition& holds) {
  const Stopwatch watch;
  while (!holds()) {
    if (watch.Seconds() > 10) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return true;
}

/// True for a process that has ended, whether or not whoever adopted it has reaped it.
inline bool IsGone(pid_t pid) {
  const std::string stat = ReadFile("/proc/" + std::to_string(pid) + "/stat");
  const std::size_t after_name = stat.rfind(") ");
  return after_name == std::string::npos || stat[after_name + 2] == 'Z';
}

/// The process id that a script writes to a file ("echo $$ >file"), once its line is whole.
inline pid_t PidIn(const std::string& path) {
  std::string text;
  EXPECT_TRUE(Eventually([&] { return (text = ReadFile(path)).ends_with('\n'); })) << path;
  return static_cast<pid_t>(std::strtol(text.c_str(), nullptr, 10));
}

inline bool HasNoChildren() {
  return waitpid(-1, nullptr, WNOHANG) < 0 && errno == ECHILD;
}

inline std::ptrdiff_t CountDescriptors() {
  return std::distance(std::filesystem::directory_iterator("/proc/self/fd"),
                       std::filesystem::directory_iterator());
}

/// Forks a copy of the test that exits with what `work` returns; returns its process id.
template <typename Work>
pid_t ForkCopy(const Work& work) {
  const pid_t pid = fork();
  if (pid == 0) _exit(work());
  return pid;
}

/// The wait status of a child of the test.
inline int WaitFor(pid_t pid) {
  int status = -1;
  EXPECT_EQ(waitpid(pid, &status, 0), pid);
  return status;
}

/// What `work` returns in a forked copy, for tests that change the process as a whole: its signals,
/// its standard descriptors. -1 when the copy was killed.
template <typename Work>
int InCopy(const Work& work) {
  const int status = WaitFor(ForkCopy(work));
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace keldo::testing
