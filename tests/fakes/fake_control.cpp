// Termination, isolation and the application log of the fake platform.
#include <syslog.h>

#include <cstdarg>

#include "fakes/fake_platform.h"
#include "platform/system.h"
#include "process/isolated.h"
#include "util/termination.h"

using keldo::testing::fake;

namespace keldo::process {

IsolatedResult RunIsolated(const std::function<int(std::string& output)>& work) {
  IsolatedResult result;
  if (fake().Enter("RunIsolated")) return result;
  result.status = work(result.output) & 0xff;
  result.finished = true;
  return result;
}

}  // namespace keldo::process

namespace keldo {

void HoldTermination() {
  fake().Enter("HoldTermination");
}

void LetTerminationIn() {
  fake().Enter("LetTerminationIn");
  if (fake().on_let_termination_in) fake().on_let_termination_in();
}

int WaitForEvents(std::span<pollfd> events, int timeout_ms) {
  if (fake().Enter("WaitForEvents", events.size(), timeout_ms)) return -1;
  if (fake().on_wait) fake().on_wait();
  return poll(events.data(), events.size(), timeout_ms);
}

}  // namespace keldo

void AppLogError(int level, const char* format, ...) {
  fake().Enter("AppLogError", level);
  va_list arguments;
  va_start(arguments, format);
  vsyslog(LOG_ERR, format, arguments);
  va_end(arguments);
}
