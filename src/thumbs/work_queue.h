// The work queues: text files of one entry a line, each with a ".tmp" twin that holds the entries
// that are being worked on. Silent.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace keldo {

/// What a line of a queue asks for. keldothumb reads its arguments the same way.
struct QueueEntry {
  bool is_tree = false;  ///< "R:/v/photo": a directory and everything below it.
  std::string path;      ///< The line, without the "R:" of a tree.

  /// The directory of a tree as keldothumb and the indexer read it: up to the next colon, so that
  /// "R:/a:b" means "/a". Nothing for "R:" alone. The writers of the indexer's queues rely on it;
  /// for everybody else the whole `path` counts.
  [[nodiscard]] std::optional<std::string> PathUpToColon() const;
};

[[nodiscard]] QueueEntry ParseQueueLine(std::string_view line);

/// True when `path` is a line of the queue file. A line that merely begins with it does not count.
[[nodiscard]] bool IsQueueLine(const std::string& path, const char* queue_path);

/// True when `path` is a line of the twin, or of the queue itself where that is readable.
[[nodiscard]] bool IsInQueue(const std::string& path, const char* queue_path,
                             const char* in_work_path);

}  // namespace keldo
