// Key/value files, line files and queues of the fake platform, on real files.
#include <algorithm>
#include <cstring>
#include <fstream>

#include "fakes/fake_platform.h"
#include "platform/file.h"
#include "platform/index_ipc.h"

using keldo::testing::fake;

namespace {

// Copies `text` as the platform does: always terminated, cut when longer.
int CopyOut(const std::string& text, char* buffer, std::size_t size) {
  const std::size_t length = std::min(text.size(), size - 1);
  std::memcpy(buffer, text.data(), length);
  buffer[length] = '\0';
  return static_cast<int>(length);
}

bool IsReadable(const char* path) {
  return std::ifstream(fake().Real(path), std::ios::binary).is_open();
}

bool HasKey(const std::string& line, const std::string& key) {
  return line.size() > key.size() && line.compare(0, key.size(), key) == 0 &&
         line[key.size()] == '=';
}

}  // namespace

int KLIBCFileGetKeyValue(const char* path, const char* key, char* value, std::size_t size,
                         int flags) {
  if (fake().Enter("KLIBCFileGetKeyValue", path, key, size, flags) || !IsReadable(path)) return -1;
  for (const std::string& line : fake().ReadLines(path)) {
    if (!HasKey(line, key)) continue;
    std::string found = line.substr(std::strlen(key) + 1);
    if (found.size() >= 2 && found.front() == '"' && found.back() == '"') {
      found = found.substr(1, found.size() - 2);
    }
    return CopyOut(found, value, size);
  }
  return 0;
}

int KLIBCFileSetKeyValue(const char* path, const char* key, const char* value, int flags) {
  if (fake().Enter("KLIBCFileSetKeyValue", path, key, value, flags)) return -1;
  std::vector<std::string> lines = fake().ReadLines(path);
  const std::string wanted = std::string(key) + "=" + value;
  const auto line = std::find_if(lines.begin(), lines.end(),
                                 [&](const std::string& text) { return HasKey(text, key); });
  if (line == lines.end()) {
    lines.push_back(wanted);
  } else {
    *line = wanted;
  }
  fake().WriteLines(path, lines);
  return 0;
}

int KLIBCFileGetLine(const char* path, const char* key, char* line, std::size_t size, int flags) {
  if (fake().Enter("KLIBCFileGetLine", path, key, size, flags) || !IsReadable(path)) return -1;
  for (const std::string& text : fake().ReadLines(path)) {
    const bool longer_too = fake().get_line_finds_longer_lines;
    if (text == key || (longer_too && text.starts_with(key))) return CopyOut(text, line, size);
  }
  return 0;
}

namespace keldoindexutils::filesystem {

bool WriteIndexQueue(const std::string& text, const std::string& queue_path) {
  if (fake().Enter("WriteIndexQueue", text, queue_path)) return false;
  if (text.find('\n') != std::string::npos) return false;
  std::vector<std::string> lines = fake().ReadLines(queue_path);
  if (std::find(lines.begin(), lines.end(), text) != lines.end()) return true;
  lines.push_back(text);
  fake().WriteLines(queue_path, lines);
  return true;
}

}  // namespace keldoindexutils::filesystem
