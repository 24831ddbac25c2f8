// File system services of the indexer: its work queues, and finding files by pattern.
#pragma once

#include <string>
#include <vector>

namespace keldoindexutils::filesystem {

/// Appends `text` as one line to the queue file, under a lock; a line that is already there is not
/// written twice. The file is made with mode 0644. False on failure, and for a text that holds a
/// newline, since it would be read back as two entries. Silent.
[[nodiscard]] bool WriteIndexQueue(const std::string& text, const std::string& queue_path);

/// The paths of the entries of `directory` whose names match the shell pattern, in byte order; a
/// leading dot is matched by an explicit dot only. The directory is taken literally, so a photo may
/// be called "a[1]*.jpg". Empty when the directory cannot be read. Silent.
[[nodiscard]] std::vector<std::string> GlobFiles(const std::string& directory,
                                                 const std::string& pattern);

}  // namespace keldoindexutils::filesystem
