// The program: command line, start-up, targets and shutdown.
#pragma once

#include <string>

namespace keldo {

/// Runs `keldothumb <profile-file> <path> [<path> ...]`. Returns the exit status: 1 when fewer than
/// two arguments follow the program name, else 0, whatever becomes of the targets. On SIGTERM the
/// process exits with 1.
int RunKeldothumb(int argc, char** argv);

/// Makes the thumbnails of one target directory. Nothing happens when the target or the profile
/// file does not exist or the target's file system is refused; a profile file that cannot be parsed
/// is reported on standard error.
void ProcessPath(const std::string& target_path, const std::string& profile_path);

/// ProcessPath for one target of many: an exception that leaves it (memory ran out) is logged, and
/// the next target follows.
void ProcessTarget(const std::string& target_path, const std::string& profile_path);

/// Removes the per-process pid files "/var/run/keldothumb.<pid>.pid" of processes that are gone.
/// The name is historical: no process is stopped. Logs a file that cannot be removed.
void KillThumbProcesses();

/// Processes `directory` and every directory below it that the filter accepts, parents first,
/// without leaving its file system. Symbolic links are followed.
void WalkTree(const std::string& directory, const std::string& profile_path);

}  // namespace keldo
