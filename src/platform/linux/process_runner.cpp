#include <sys/wait.h>
#include <syslog.h>

#include <chrono>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include "media/imagemagick_names.h"
#include "platform/process.h"
#include "process/child.h"
#include "util/deadline.h"

namespace KELDOUtils {
namespace {

using keldo::Clock;
using keldo::process::Child;

constexpr const char* kSource = "process";
constexpr int kFailed = -1;

// Line values of this source's messages.
constexpr int kNotStartedLine = 41;
constexpr int kOverranLine = 52;
constexpr int kFailedLine = 63;

// Logs how the child ended. Its last argument says what it worked on: the photo itself, or an
// output in the photo's metadata directory.
void LogFailure(const std::string& program, int status, const std::string& last_argument) {
  const bool killed = WIFSIGNALED(status);
  syslog(LOG_WARNING, "%s:%d [Warning] %s ended with %s %d on %s", kSource, kFailedLine,
         program.c_str(), killed ? "signal" : "status",
         killed ? WTERMSIG(status) : WEXITSTATUS(status), last_argument.c_str());
}

}  // namespace

struct ProcessRunner::Impl {
  std::string program;
  std::vector<std::string> arguments;
};

ProcessRunner::ProcessRunner(const char* program, const char* argv0, const char* a1, const char* a2,
                             const char* a3)
    : impl_(std::make_unique<Impl>(Impl{program, {}})) {
  addArguments(argv0, a1, a2, a3);
}

ProcessRunner::~ProcessRunner() = default;

void ProcessRunner::addArguments(const char* a1, const char* a2, const char* a3, const char* a4,
                                 const char* a5, const char* a6, const char* a7, const char* a8,
                                 const char* a9) {
  for (const char* argument : {a1, a2, a3, a4, a5, a6, a7, a8, a9}) {
    if (argument == nullptr) return;
    impl_->arguments.emplace_back(argument);
  }
}

int ProcessRunner::run(bool /*wait*/, bool /*detach_output*/) {
  const keldo::media::LiteralNames names(impl_->program, impl_->arguments);
  int error = names.error();
  std::optional<Child> child = error == 0 ? Child::Start({impl_->program, names.arguments()}, error)
                                          : std::optional<Child>();
  if (!child) {
    syslog(LOG_ERR, "%s:%d [Error] failed to start %s: %s", kSource, kNotStartedLine,
           impl_->program.c_str(), std::strerror(error));
    return kFailed;
  }
  const std::chrono::seconds limit = keldo::process::ChildDeadline();
  const bool ended = child->WaitUntil(Clock::now() + limit);
  const int status = child->KillAndReap();
  if (!ended) {
    syslog(LOG_ERR, "%s:%d [Error] killed %s, which ran for more than %lld s", kSource,
           kOverranLine, impl_->program.c_str(), static_cast<long long>(limit.count()));
    return kFailed;
  }
  if (status != 0) LogFailure(impl_->program, status, impl_->arguments.back());
  return status;
}

}  // namespace KELDOUtils
