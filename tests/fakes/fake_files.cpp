// Files of the fake platform: metadata directories, file system types, and the small text files:
// key/value pairs, lines, queues and a plain subset of INI.
#include <fcntl.h>
#include <fnmatch.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>

#include "fakes/fake_platform.h"
#include "platform/conf_parser.h"
#include "platform/ea_dir.h"
#include "platform/file.h"
#include "platform/index_ipc.h"
#include "platform/system.h"
#include "util/handles.h"
#include "util/path.h"
#include "util/text.h"

using keldo::Trim;
using keldo::testing::fake;

namespace {

bool StatFile(const std::string& path, struct stat& status) {
  return stat(fake().Real(path).c_str(), &status) == 0;
}

bool IsThere(const std::string& path) {
  struct stat status {};
  return StatFile(path, status);
}

template <typename Map, typename Key>
typename Map::mapped_type AnswerOr(const Map& answers, const Key& key,
                                   typename Map::mapped_type fallback) {
  const auto found = answers.find(key);
  return found == answers.end() ? fallback : found->second;
}

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

int KLIBCFileStat(const char* path, int flags, KLIBCFileRecord* record) {
  if (fake().Enter("KLIBCFileStat", path, flags)) return -1;
  if (!StatFile(path, record->st)) return -1;
  record->platform_words = {71, 72};  // Recognisable, since callers pass them on unchanged.
  return 0;
}

int KLIBCFileUTime(const char* path, int mode, const std::array<timespec, 3>& times) {
  if (fake().Enter("KLIBCFileUTime", path, mode, times[0].tv_sec, times[0].tv_nsec, times[1].tv_sec,
                   times[1].tv_nsec, times[2].tv_sec, times[2].tv_nsec)) {
    return -1;
  }
  return utimensat(AT_FDCWD, fake().Real(path).c_str(), times.data(), 0);
}

std::uint64_t KLIBGetFsAvailSize(const char* path) {
  if (fake().Enter("KLIBGetFsAvailSize", path)) return 0;
  return AnswerOr(fake().free_bytes, path, fake().default_free_bytes);
}

namespace keldoindexutils::stat {

bool DoesFileExist(const std::string& path) {
  return !fake().Enter("DoesFileExist", path) && IsThere(path);
}

bool DoesDirExist(const std::string& path) {
  struct ::stat status {};
  return !fake().Enter("DoesDirExist", path) && StatFile(path, status) && S_ISDIR(status.st_mode);
}

bool DoesFileExistAndHasSize(const std::string& path) {
  struct ::stat status {};
  return !fake().Enter("DoesFileExistAndHasSize", path) && StatFile(path, status) &&
         status.st_size > 0;
}

}  // namespace keldoindexutils::stat

int KELDOEADirPath(const char* source_path, char* buffer, std::size_t size) {
  if (fake().Enter("KELDOEADirPath", source_path, size)) return -1;
  const std::string source = source_path;
  const std::size_t slash = source.rfind('/');
  const std::string directory = slash == std::string::npos ? "" : source.substr(0, slash + 1);
  const std::string result = directory + "@eaDir/" + source.substr(directory.size());
  if (source.empty() || result.back() == '/' || result.size() >= size) return -1;
  std::memcpy(buffer, result.c_str(), result.size() + 1);
  return 0;
}

int KELDOEAIsHiddenDir(const char* name) {
  if (fake().Enter("KELDOEAIsHiddenDir", name)) return 0;
  return fake().hidden_dirs.count(name) != 0 ? 1 : 0;
}

std::string GetFileNameEAFileExist(const std::string& directory, const std::string& underscore_name,
                                   const std::string& colon_name) {
  if (fake().Enter("GetFileNameEAFileExist", directory, underscore_name, colon_name)) return "";
  if (IsThere(keldo::JoinPath(directory, underscore_name))) return underscore_name;
  return IsThere(keldo::JoinPath(directory, colon_name)) ? colon_name : "";
}

bool RemoveEAFile(const std::string& directory, const std::string& underscore_name,
                  const std::string& colon_name) {
  if (fake().Enter("RemoveEAFile", directory, underscore_name, colon_name)) return false;
  bool both_gone = true;
  for (const std::string& name : {underscore_name, colon_name}) {
    const std::string path = fake().Real(keldo::JoinPath(directory, name));
    if (unlink(path.c_str()) != 0 && errno != ENOENT) both_gone = false;
  }
  return both_gone;
}

bool IsEAFileExist(const std::string& directory, const std::vector<std::string>& names) {
  std::string all;
  for (const std::string& name : names)
    all.append(all.empty() ? "" : " ").append(name);
  if (fake().Enter("IsEAFileExist", directory, all)) return false;
  return std::any_of(names.begin(), names.end(), [&](const std::string& name) {
    return IsThere(keldo::JoinPath(directory, name));
  });
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

std::vector<std::string> GlobFiles(const std::string& directory, const std::string& pattern) {
  std::vector<std::string> paths;
  if (fake().Enter("GlobFiles", directory, pattern)) return paths;
  const keldo::UniqueDir stream(opendir(fake().Real(directory).c_str()));
  if (!stream) return paths;
  while (const dirent* entry = readdir(stream.get())) {
    if (fnmatch(pattern.c_str(), entry->d_name, FNM_PERIOD) == 0) {
      paths.push_back(keldo::JoinPath(directory, entry->d_name));
    }
  }
  std::sort(paths.begin(), paths.end());
  return paths;
}

}  // namespace keldoindexutils::filesystem

int KELDOGetFSType(const char* path, int flags) {
  if (fake().Enter("KELDOGetFSType", path, flags)) return -1;
  return AnswerOr(fake().fs_types, path, keldo::testing::kLocalFs);
}

int KELDOFSIsRemoteFS(int type) {
  if (fake().Enter("KELDOFSIsRemoteFS", type)) return 0;
  return AnswerOr(fake().remote_fs_answers, type, 0);
}

int KELDOFSIsImageFS(int type) {
  if (fake().Enter("KELDOFSIsImageFS", type)) return 0;
  return AnswerOr(fake().image_fs_answers, type, 0);
}

int GetTotalMemory(long* total_kib) {
  if (fake().Enter("GetTotalMemory") || !fake().total_memory_kib) return -1;
  *total_kib = *fake().total_memory_kib;
  return 0;
}

int KLIBCErrGet() {
  return fake().kept_error.code;
}
const char* KLIBCErrorGetFile() {
  return fake().kept_error.file.c_str();
}
int KLIBCErrorGetLine() {
  return fake().kept_error.line;
}

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

namespace KELDOUtils {

struct ConfParser::Impl {
  std::vector<std::string> section_names;
  std::map<std::string, std::map<std::string, std::string>> sections;
};

ConfParser::ConfParser() : impl_(std::make_unique<Impl>()) {}
ConfParser::~ConfParser() = default;
ConfParser::ConfParser(ConfParser&& other) noexcept = default;
ConfParser& ConfParser::operator=(ConfParser&& other) noexcept = default;

int ConfParser::loadFromFile(const char* path) {
  if (fake().Enter("ConfParser::loadFromFile", path)) return 0;
  if (!std::filesystem::is_regular_file(fake().Real(path))) return 0;
  auto& [names, sections] = *impl_;
  std::string section;
  for (const std::string& raw : fake().ReadLines(path)) {
    const std::string line(Trim(raw));
    const std::size_t equals = line.find('=');
    if (line.empty() || line.front() == ';' || line.front() == '#') continue;
    if (line.front() == '[' && line.back() == ']') {
      section = line.substr(1, line.size() - 2);
      if (std::ranges::find(names, section) == names.end()) names.push_back(section);
    } else if (equals != std::string::npos && !names.empty()) {
      sections[section][std::string(Trim(line.substr(0, equals)))] = Trim(line.substr(equals + 1));
    } else {
      return 0;
    }
  }
  return 1;
}

std::vector<std::string> ConfParser::enumSections() const {
  return impl_->section_names;
}

int ConfParser::getInt(const std::string& section, const std::string& key, int fallback) const {
  const std::string text = getString(section, key, "");
  char* end = nullptr;
  errno = 0;
  const long value = std::strtol(text.c_str(), &end, 10);
  const bool is_number = !text.empty() && *end == '\0' && errno == 0;
  return is_number ? static_cast<int>(value) : fallback;
}

std::string ConfParser::getString(const std::string& section, const std::string& key,
                                  const std::string& fallback) const {
  const auto keys = impl_->sections.find(section);
  if (keys == impl_->sections.end()) return fallback;
  const auto value = keys->second.find(key);
  return value == keys->second.end() ? fallback : value->second;
}

}  // namespace KELDOUtils
