// Files, metadata directories and file system types of the fake platform.
#include <fcntl.h>
#include <fnmatch.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "fakes/fake_platform.h"
#include "platform/ea_dir.h"
#include "platform/file.h"
#include "platform/index_ipc.h"
#include "platform/system.h"
#include "util/handles.h"
#include "util/path.h"

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

}  // namespace

int KLIBCFileStat(const char* path, int flags, KLIBCFileRecord* record) {
  if (fake().Enter("KLIBCFileStat", path, flags)) return -1;
  if (!StatFile(path, record->st)) return -1;
  record->platform_words = {71, 72};  // Recognisable, since callers hand them on unchanged.
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
