#include "convert/sandbox/worker.h"

#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <exception>
#include <new>

#include "convert/cli/input_file.h"
#include "convert/pixels/image.h"
#include "convert/sandbox/message.h"

namespace keldo::convert {
namespace {

// How a worker ends.
constexpr int kDone = 0;
constexpr int kFailed = 1;
constexpr int kUnsupported = 2;

constexpr const char* kOutOfMemory = "it needs more memory than the limit allows";

void NoteGaps(const SandboxGaps& gaps) {
  if (!gaps.landlock && !gaps.seccomp) return;
  std::string parts = gaps.landlock ? "Landlock" : "seccomp filters";
  if (gaps.landlock && gaps.seccomp) parts = "Landlock and seccomp filters";
  Complain("note: photos are read in a weaker sandbox, since this kernel lacks " + parts);
}

int Work(const WorkerPlan& plan, const std::function<void()>& work) {
  try {
    work();
    return kDone;
  } catch (const ImageError& error) {
    if (error.kind() == ImageError::Kind::kUnsupported) return kUnsupported;
    Complain(plan.name, error.what());
  } catch (const std::bad_alloc&) {
    Complain(plan.name, kOutOfMemory);
  } catch (const std::exception& error) {
    Complain(plan.name, error.what());
  }
  return kFailed;
}

[[noreturn]] void BeWorker(const WorkerPlan& plan, pid_t parent,
                           const std::function<void()>& work) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  // The parent may have gone before the line above took effect.
  if (getppid() != parent) _exit(kFailed);
  // Whoever started us may have had these ignored or blocked. Too long a file is to be an error of
  // write.
  static_cast<void>(std::signal(SIGXCPU, SIG_DFL));
  static_cast<void>(std::signal(SIGALRM, SIG_DFL));
  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);
  static_cast<void>(std::signal(SIGXFSZ, SIG_IGN));
  CloseOtherDescriptors(plan.descriptors);
  NoteGaps(EnterSandbox(plan.limits, plan.parts));
  // Nothing of the parent's is flushed or removed a second time.
  _exit(Work(plan, work));
}

std::string DeathBy(int signal, const WorkerLimits& limits) {
  switch (signal) {
    case SIGXCPU:
      return "reading it took longer than the CPU-time limit of " +
             std::to_string(limits.cpu_seconds) + " s";
    case SIGALRM:
      return "reading it took longer than the limit of " + std::to_string(limits.seconds) + " s";
    case SIGSYS:
      return "the decoder tried what the sandbox forbids and was stopped";
    case SIGBUS:
      return "the file shrank while it was read, or cannot be read";
    case SIGKILL:
      return "the decoder was killed, perhaps for want of memory";
    case SIGTERM:
    case SIGINT:
    case SIGHUP:
      return "the decoder was told to stop (signal " + std::to_string(signal) + ")";
    default:
      return "the decoder crashed (signal " + std::to_string(signal) + ")";
  }
}

Outcome OutcomeOf(const WorkerPlan& plan, int status) {
  if (WIFSIGNALED(status)) {
    Complain(plan.name, DeathBy(WTERMSIG(status), plan.limits));
    return Outcome::kFailed;
  }
  switch (WEXITSTATUS(status)) {
    case kDone:
      return Outcome::kDone;
    case kUnsupported:
      return Outcome::kUnsupported;
    case kFailed:
      return Outcome::kFailed;
    default:
      // A library ended the process by itself.
      Complain(plan.name, "the decoder gave up");
      return Outcome::kFailed;
  }
}

}  // namespace

Outcome RunWorker(const WorkerPlan& plan, const std::function<void()>& work) {
  KeepExitStatuses();
  const pid_t parent = getpid();
  const pid_t child = fork();
  if (child == 0) BeWorker(plan, parent, work);
  const int status = child > 0 ? WaitForChild(child) : -1;
  if (status >= 0) return OutcomeOf(plan, status);
  Complain(plan.name, "no process for the decoder: " + LastErrorText());
  return Outcome::kFailed;
}

void KeepExitStatuses() {
  struct sigaction current {};
  sigaction(SIGCHLD, nullptr, &current);
  if (current.sa_handler == SIG_IGN || (current.sa_flags & SA_NOCLDWAIT) != 0)
    static_cast<void>(std::signal(SIGCHLD, SIG_DFL));
}

int WaitForChild(pid_t child) {
  int status = 0;
  while (waitpid(child, &status, 0) != child) {
    if (errno != EINTR) return -1;
  }
  return status;
}

}  // namespace keldo::convert
