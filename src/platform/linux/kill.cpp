#include <unistd.h>

#include <charconv>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <system_error>

#include "platform/process.h"
#include "util/handles.h"

namespace {

// Longest command name that the kernel keeps.
constexpr std::size_t kCommandNameLength = 15;

// The process id that an entry of /proc stands for; 0 for any other entry.
pid_t PidOfEntry(const char* name) {
  pid_t pid = 0;
  const char* end = name + std::strlen(name);
  const auto [stop, error] = std::from_chars(name, end, pid);
  return error == std::errc() && stop == end ? pid : 0;
}

std::string CommandName(pid_t pid) {
  std::ifstream file("/proc/" + std::to_string(pid) + "/comm");
  std::string name((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
  if (!name.empty() && name.back() == '\n') name.pop_back();
  return name;
}

pid_t ParentOf(pid_t pid) {
  std::ifstream file("/proc/" + std::to_string(pid) + "/stat");
  const std::string text((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
  // The name in parentheses may hold anything; after it come the state and the parent.
  const std::size_t after_name = text.rfind(") ");
  if (after_name == std::string::npos || after_name + 4 > text.size()) return 0;
  return static_cast<pid_t>(std::strtol(text.c_str() + after_name + 4, nullptr, 10));
}

// The target of kill(2): the whole group for a child of ours that leads one, else the process.
pid_t KillTarget(pid_t pid) {
  const bool leads_our_group = ParentOf(pid) == getpid() && getpgid(pid) == pid;
  return leads_our_group ? -pid : pid;
}

}  // namespace

int KLIBCKill(const char* name, int signal) {
  const std::string wanted = std::string(name).substr(0, kCommandNameLength);
  const int sent = signal == 0 ? SIGKILL : signal;
  int count = 0;
  // A process that has just ended has an empty name.
  if (wanted.empty()) return count;
  const keldo::UniqueDir processes(opendir("/proc"));
  if (!processes) return count;
  while (const dirent* entry = readdir(processes.get())) {
    const pid_t pid = PidOfEntry(entry->d_name);
    if (pid <= 0 || pid == getpid() || CommandName(pid) != wanted) continue;
    if (kill(KillTarget(pid), sent) == 0) ++count;
  }
  return count;
}
