// Direct system calls of the program under test pass through the fake: on the system's fixed paths
// they reach the sandbox, and on any path they fail where the test says so.
//
// The linker's --wrap option sends every call of `name` to `__wrap_name` and offers the C library's
// own as `__real_name`.
#include <dirent.h>
#include <fcntl.h>
#include <glob.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "fakes/fake_platform.h"

using keldo::testing::fake;
using keldo::testing::FakePlatform;

namespace {

// True when the call must fail. Only calls on fixed paths are recorded: others are as often the
// test's own as the program's.
template <typename... Args>
bool Enter(const char* call, const char* path, const Args&... args) {
  return FakePlatform::IsFixedPath(path) ? fake().Enter(call, path, args...)
                                         : fake().ShallFail(call);
}

}  // namespace

extern "C" {

int __real_access(const char* path, int mode);
int __real_chmod(const char* path, mode_t mode);
FILE* __real_fopen(const char* path, const char* mode);
int __real_glob(const char* pattern, int flags, int (*on_error)(const char*, int), glob_t* result);
int __real_mkdir(const char* path, mode_t mode);
int __real_open(const char* path, int flags, ...);
DIR* __real_opendir(const char* path);
int __real_rename(const char* from, const char* to);
int __real_unlink(const char* path);

int __wrap_access(const char* path, int mode);
int __wrap_chmod(const char* path, mode_t mode);
FILE* __wrap_fopen(const char* path, const char* mode);
int __wrap_glob(const char* pattern, int flags, int (*on_error)(const char*, int), glob_t* result);
int __wrap_mkdir(const char* path, mode_t mode);
int __wrap_open(const char* path, int flags, ...);
DIR* __wrap_opendir(const char* path);
int __wrap_rename(const char* from, const char* to);
int __wrap_unlink(const char* path);

int __wrap_access(const char* path, int mode) {
  return Enter("access", path, mode) ? -1 : __real_access(fake().Real(path).c_str(), mode);
}

int __wrap_chmod(const char* path, mode_t mode) {
  return Enter("chmod", path, mode) ? -1 : __real_chmod(fake().Real(path).c_str(), mode);
}

FILE* __wrap_fopen(const char* path, const char* mode) {
  return Enter("fopen", path, mode) ? nullptr : __real_fopen(fake().Real(path).c_str(), mode);
}

int __wrap_glob(const char* pattern, int flags, int (*on_error)(const char*, int), glob_t* result) {
  if (Enter("glob", pattern, flags)) return GLOB_ABORTED;
  const int status = __real_glob(fake().Real(pattern).c_str(), flags, on_error, result);
  if (status != 0 || !FakePlatform::IsFixedPath(pattern)) return status;
  // Returns the paths as the program knows them.
  const std::size_t added = fake().sandbox().size();
  for (std::size_t i = 0; i < result->gl_pathc; ++i) {
    char* path = result->gl_pathv[i];
    std::memmove(path, path + added, std::strlen(path + added) + 1);
  }
  return 0;
}

int __wrap_mkdir(const char* path, mode_t mode) {
  return Enter("mkdir", path, mode) ? -1 : __real_mkdir(fake().Real(path).c_str(), mode);
}

int __wrap_open(const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const bool creates = (flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE;
  // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): it does not see va_start above.
  const mode_t mode = creates ? va_arg(arguments, mode_t) : 0;
  va_end(arguments);
  return Enter("open", path, flags, mode) ? -1
                                          : __real_open(fake().Real(path).c_str(), flags, mode);
}

DIR* __wrap_opendir(const char* path) {
  return Enter("opendir", path) ? nullptr : __real_opendir(fake().Real(path).c_str());
}

int __wrap_rename(const char* from, const char* to) {
  if (Enter("rename", from, to)) return -1;
  return __real_rename(fake().Real(from).c_str(), fake().Real(to).c_str());
}

int __wrap_unlink(const char* path) {
  return Enter("unlink", path) ? -1 : __real_unlink(fake().Real(path).c_str());
}

}  // extern "C"
