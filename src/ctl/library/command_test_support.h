// Files, snapshots and command lines for the tests.
#pragma once

#include <fcntl.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "ctl/commands/command.h"

namespace keldo::ctl {

inline void WriteFile(const std::string& path, const std::string& content) {
  std::filesystem::create_directories(std::filesystem::path(path).parent_path());
  std::ofstream(path, std::ios::binary) << content;
}

inline std::string ReadAll(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

inline void SetTime(const std::string& path, time_t seconds) {
  const timespec times[2] = {{seconds, 0}, {seconds, 0}};
  utimensat(AT_FDCWD, path.c_str(), times, AT_SYMLINK_NOFOLLOW);
}

/// Every entry below `root` by its relative path: its kind, mode, time and content. The times of
/// directories are left out, because removing an entry changes them.
inline std::map<std::string, std::string> Snapshot(const std::string& root) {
  std::map<std::string, std::string> entries;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(root)) {
    struct stat status {};
    lstat(entry.path().c_str(), &status);
    std::ostringstream text;
    text << std::oct << status.st_mode << std::dec << " ";
    if (entry.is_symlink()) {
      text << std::filesystem::read_symlink(entry.path()).native();
    } else if (S_ISREG(status.st_mode)) {
      text << status.st_mtim.tv_sec << "." << status.st_mtim.tv_nsec << " "
           << ReadAll(entry.path().native());
    }
    entries[entry.path().native().substr(root.size() + 1)] = text.str();
  }
  return entries;
}

/// Runs command lines and keeps what they print.
class CommandRunner {
 public:
  int Run(const std::vector<std::string>& arguments) {
    std::ostringstream out;
    std::ostringstream err;
    const int status = RunCommandLine(arguments, environment, out, err);
    output = out.str();
    errors = err.str();
    return status;
  }

  Environment environment;
  std::string output;
  std::string errors;
};

}  // namespace keldo::ctl
