#include "thumbs/work_queue.h"

#include <unistd.h>

#include <array>
#include <cstring>

#include "platform/file.h"

namespace keldo {
namespace {

constexpr std::string_view kTreePrefix = "R:";
constexpr std::size_t kLineBufferSize = 4096;
constexpr int kFindLine = 1028;

}  // namespace

QueueEntry ParseQueueLine(std::string_view line) {
  const bool is_tree = line.starts_with(kTreePrefix);
  return {is_tree, std::string(line.substr(is_tree ? kTreePrefix.size() : 0))};
}

std::optional<std::string> QueueEntry::PathUpToColon() const {
  const std::size_t begin = path.find_first_not_of(':');
  if (begin == std::string::npos) return std::nullopt;
  return path.substr(begin, path.find(':', begin) - begin);
}

bool IsQueueLine(const std::string& path, const char* queue_path) {
  std::array<char, kLineBufferSize> line{};
  const int found = KLIBCFileGetLine(queue_path, path.c_str(), line.data(), line.size(), kFindLine);
  return found > 0 && std::strlen(line.data()) == path.size();
}

bool IsInQueue(const std::string& path, const char* queue_path, const char* in_work_path) {
  if (IsQueueLine(path, in_work_path)) return true;
  return access(queue_path, R_OK) == 0 && IsQueueLine(path, queue_path);
}

}  // namespace keldo
