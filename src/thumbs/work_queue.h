// Looking things up in the work queues: text files of one path a line, each with a ".tmp" twin that
// holds what is being worked on.
#pragma once

#include <string>

namespace keldo {

/// True when `path` is a line of the queue file. A line that merely begins with it does not count.
[[nodiscard]] bool IsQueueLine(const std::string& path, const char* queue_path);

/// True when `path` is a line of the twin, or of the queue itself where that is readable.
[[nodiscard]] bool IsInQueue(const std::string& path, const char* queue_path,
                             const char* in_work_path);

}  // namespace keldo
