// Child processes of the fake platform: recorded, never started.
#include <unistd.h>

#include <array>
#include <cstdarg>
#include <string>

#include "fakes/fake_platform.h"
#include "platform/process.h"
#include "process/startup.h"

using keldo::testing::fake;
using keldo::testing::PopenCall;

namespace KELDOUtils {

struct ProcessRunner::Impl {
  /// The program, then its argument vector.
  std::vector<std::string> command;
};

ProcessRunner::ProcessRunner(const char* program, const char* argv0, const char* a1, const char* a2,
                             const char* a3)
    : impl_(std::make_unique<Impl>(Impl{{program, argv0}})) {
  addArguments(a1, a2, a3);
}

ProcessRunner::~ProcessRunner() = default;

void ProcessRunner::addArguments(const char* a1, const char* a2, const char* a3, const char* a4,
                                 const char* a5, const char* a6, const char* a7, const char* a8,
                                 const char* a9) {
  for (const char* argument : std::array{a1, a2, a3, a4, a5, a6, a7, a8, a9}) {
    if (argument == nullptr) return;
    impl_->command.emplace_back(argument);
  }
}

int ProcessRunner::run(bool wait, bool detach_output) {
  const std::vector<std::string>& command = impl_->command;
  fake().runs.push_back(command);
  if (fake().Enter("ProcessRunner::run", command.front(), wait, detach_output)) return -1;
  return fake().on_run ? fake().on_run(command) : 0;
}

}  // namespace KELDOUtils

FILE* KLIBCPopen(const char* path, const char* mode, ...) {
  PopenCall call{mode, {path}};
  va_list arguments;
  va_start(arguments, mode);
  while (const char* argument = va_arg(arguments, const char*))
    call.argv.emplace_back(argument);
  va_end(arguments);

  fake().popens.push_back(call);
  if (fake().Enter("KLIBCPopen", path, mode)) return nullptr;
  const std::optional<std::string> output =
      fake().on_popen ? fake().on_popen(call) : std::optional<std::string>("");
  return output ? fake().OpenStream(*output) : nullptr;
}

int KLIBCPclose(FILE* stream) {
  fake().Enter("KLIBCPclose");
  return fake().CloseStream(stream) ? fake().popen_status : -1;
}

int KLIBCKill(const char* name, int signal) {
  return fake().Enter("KLIBCKill", name, signal) ? 0 : fake().killed_processes;
}

int KLIBCProcPidFileCreate(const char* path) {
  if (fake().Enter("KLIBCProcPidFileCreate", path)) return -1;
  fake().WriteLines(path, {std::to_string(getpid())});
  return 0;
}

namespace keldo::process {

void EnsureStandardDescriptors() {
  fake().Enter("EnsureStandardDescriptors");
}

}  // namespace keldo::process
