#include "platform/linux/last_error.h"

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

}  // namespace

void RecordError(ErrorCode code, const char* source_file, int line) {
  Last() = {.code = code, .file = source_file, .line = line};
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
