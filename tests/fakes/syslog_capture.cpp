#include "fakes/syslog_capture.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>

// <syslog.h> stays out: at -O2 it defines syslog and vsyslog inline in terms of the fortified
// forms, and this file must define all four.

namespace keldo::testing {
namespace {

std::vector<LogLine>& Lines() {
  static std::vector<LogLine> lines;
  return lines;
}

__attribute__((format(printf, 2, 0))) void Keep(int priority, const char* format,
                                                va_list arguments) {
  // The C library expands %m from errno in the printf family too; both passes need the caller's.
  const int error = errno;
  va_list copy;
  va_copy(copy, arguments);
  // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): it does not see va_copy above.
  const int length = std::vsnprintf(nullptr, 0, format, copy);
  va_end(copy);
  std::string text(length > 0 ? static_cast<std::size_t>(length) : 0, '\0');
  errno = error;
  if (length > 0) std::vsnprintf(text.data(), text.size() + 1, format, arguments);
  Lines().push_back({priority, std::move(text)});
  errno = error;
}

}  // namespace

std::ostream& operator<<(std::ostream& out, const LogLine& line) {
  return out << '<' << line.priority << "> \"" << line.text << '"';
}

const std::vector<LogLine>& CapturedSyslog() {
  return Lines();
}

void ClearSyslog() {
  Lines().clear();
}

}  // namespace keldo::testing

extern "C" {

__attribute__((format(printf, 2, 3))) void syslog(int priority, const char* format, ...);
__attribute__((format(printf, 2, 0))) void vsyslog(int priority, const char* format,
                                                   va_list arguments);
__attribute__((format(printf, 3, 4))) void __syslog_chk(int priority, int flag, const char* format,
                                                        ...);
__attribute__((format(printf, 3, 0))) void __vsyslog_chk(int priority, int flag, const char* format,
                                                         va_list arguments);

void syslog(int priority, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  keldo::testing::Keep(priority, format, arguments);
  va_end(arguments);
}

void vsyslog(int priority, const char* format, va_list arguments) {
  keldo::testing::Keep(priority, format, arguments);
}

void __syslog_chk(int priority, int /*flag*/, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  keldo::testing::Keep(priority, format, arguments);
  va_end(arguments);
}

void __vsyslog_chk(int priority, int /*flag*/, const char* format, va_list arguments) {
  keldo::testing::Keep(priority, format, arguments);
}

}  // extern "C"
