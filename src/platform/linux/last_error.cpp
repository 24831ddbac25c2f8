#include "platform/linux/last_error.h"

#include <cstring>

#include "platform/error.h"

namespace keldo::platform {
namespace {

struct LastError {
  ErrorCode code = ErrorCode::kNone;
  const char* file = "";
  int line = 0;
};

LastError& Last() {
  static LastError last;
  return last;
}

// "/build/src/platform/linux/ea_dir.cpp" gives "ea_dir.cpp": where the sources lay at build time is
// nothing for a log.
const char* BaseName(const char* path) {
  const char* slash = std::strrchr(path, '/');
  return slash == nullptr ? path : slash + 1;
}

}  // namespace

void RecordError(ErrorCode code, std::source_location where) {
  Last() = {
      .code = code, .file = BaseName(where.file_name()), .line = static_cast<int>(where.line())};
}

}  // namespace keldo::platform

int KLIBCErrGet() {
  return static_cast<int>(keldo::platform::Last().code);
}

const char* KLIBCErrorGetFile() {
  return keldo::platform::Last().file;
}

int KLIBCErrorGetLine() {
  return keldo::platform::Last().line;
}
