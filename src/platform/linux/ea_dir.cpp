#include "platform/ea_dir.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <string_view>

#include "util/path.h"

namespace {

// Codes that KLIBCErrGet returns; callers log them in four hexadecimal digits.
enum class ErrorCode : int {
  kNone = 0,
  kPathTooLong = 0x0100,     // the result does not fit the caller's buffer
  kNoFileName = 0x0200,      // the path is empty or ends in '/': it names no file
  kMissingArgument = 0x0300  // a null pointer where there must be text or a buffer
};

// Callers log the line too, so each failure keeps its number.
constexpr int kMissingArgumentLine = 61;
constexpr int kNoFileNameLine = 66;
constexpr int kPathTooLongLine = 72;

struct LastError {
  ErrorCode code = ErrorCode::kNone;
  const char* file = "";
  int line = 0;
};

LastError& Last() {
  static LastError last;
  return last;
}

constexpr std::string_view kMetadataDirectory = "@eaDir";

// Besides our own: trash folders, and what other systems and desktops keep on a volume for
// themselves. Nobody keeps photos there.
constexpr auto kHiddenDirectories = std::to_array<std::string_view>(
    {kMetadataDirectory, "@tmp", "@trash", "lost+found", ".Trash", ".Trashes", ".thumbnails",
     "$RECYCLE.BIN", "$Recycle.Bin", "System Volume Information"});

// ".Trash-1000": the trash of the user with this id, on a volume outside their home.
bool IsTrashOfAUser(std::string_view name) {
  constexpr std::string_view kPrefix = ".Trash-";
  if (!name.starts_with(kPrefix) || name.size() == kPrefix.size()) return false;
  return name.find_first_not_of("0123456789", kPrefix.size()) == std::string_view::npos;
}

bool Exists(const std::string& path) {
  struct stat status {};
  return ::stat(path.c_str(), &status) == 0;
}

bool IsGone(const std::string& path) {
  return ::unlink(path.c_str()) == 0 || errno == ENOENT || errno == ENOTDIR;
}

// Where the caller wants the result.
struct Buffer {
  char* text;
  std::size_t size;
};

// Fails with an empty result.
int Fail(ErrorCode code, int line, const Buffer& buffer) {
  if (buffer.text != nullptr && buffer.size > 0) *buffer.text = '\0';
  Last() = {.code = code, .file = "ea_dir.cpp", .line = line};
  return -1;
}

}  // namespace

int KELDOEADirPath(const char* source_path, char* buffer, std::size_t size) {
  if (source_path == nullptr || buffer == nullptr) {
    return Fail(ErrorCode::kMissingArgument, kMissingArgumentLine, {buffer, size});
  }
  const std::string_view source(source_path);
  const std::size_t slash = source.rfind('/');
  const std::size_t name = slash == std::string_view::npos ? 0 : slash + 1;
  if (name == source.size()) return Fail(ErrorCode::kNoFileName, kNoFileNameLine, {buffer, size});

  std::string path;
  path.reserve(source.size() + kMetadataDirectory.size() + 1);
  path.append(source.substr(0, name)).append(kMetadataDirectory);
  path.append("/").append(source.substr(name));
  if (path.size() >= size) return Fail(ErrorCode::kPathTooLong, kPathTooLongLine, {buffer, size});
  std::memcpy(buffer, path.c_str(), path.size() + 1);
  return 0;
}

int KELDOEAIsHiddenDir(const char* name) {
  const std::string_view text(name == nullptr ? "" : name);
  const bool listed = std::ranges::find(kHiddenDirectories, text) != kHiddenDirectories.end();
  return listed || IsTrashOfAUser(text) ? 1 : 0;
}

std::string GetFileNameEAFileExist(const std::string& directory, const std::string& underscore_name,
                                   const std::string& colon_name) {
  for (const std::string* name : {&underscore_name, &colon_name}) {
    if (Exists(keldo::JoinPath(directory, *name))) return *name;
  }
  return {};
}

bool RemoveEAFile(const std::string& directory, const std::string& underscore_name,
                  const std::string& colon_name) {
  const bool underscore_gone = IsGone(keldo::JoinPath(directory, underscore_name));
  const bool colon_gone = IsGone(keldo::JoinPath(directory, colon_name));
  return underscore_gone && colon_gone;
}

bool IsEAFileExist(const std::string& directory, const std::vector<std::string>& names) {
  return std::ranges::any_of(
      names, [&](const std::string& name) { return Exists(keldo::JoinPath(directory, name)); });
}

int KLIBCErrGet() {
  return static_cast<int>(Last().code);
}

const char* KLIBCErrorGetFile() {
  return Last().file;
}

int KLIBCErrorGetLine() {
  return Last().line;
}
