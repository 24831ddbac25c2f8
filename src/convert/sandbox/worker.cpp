#include "convert/sandbox/worker.h"

#include <sys/wait.h>

#include <csignal>
#include <exception>
#include <new>
#include <optional>

#include "convert/pixels/image.h"
#include "convert/sandbox/message.h"
#include "process/child.h"

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
  PrintError("note: photos are read in a weaker sandbox, since this kernel lacks " + parts);
}

int Work(const WorkerPlan& plan, const std::function<void()>& work) {
  try {
    work();
    return kDone;
  } catch (const ImageError& error) {
    if (error.kind() == ImageError::Kind::kUnsupported) return kUnsupported;
    PrintError(plan.name, error.what());
  } catch (const std::bad_alloc&) {
    PrintError(plan.name, kOutOfMemory);
  } catch (const std::exception& error) {
    PrintError(plan.name, error.what());
  }
  return kFailed;
}

// What the worker exits with.
int WorkConfined(const WorkerPlan& plan, const std::function<void()>& work) {
  process::DefaultAndUnblock({SIGXCPU, SIGALRM});
  // Exceeding the limit on file sizes must be an error of write, not a signal.
  static_cast<void>(std::signal(SIGXFSZ, SIG_IGN));
  CloseOtherDescriptors(plan.descriptors);
  NoteGaps(EnterSandbox(plan.limits, plan.parts));
  return Work(plan, work);
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
    PrintError(plan.name, DeathBy(WTERMSIG(status), plan.limits));
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
      PrintError(plan.name, "the decoder gave up");
      return Outcome::kFailed;
  }
}

}  // namespace

Outcome RunWorker(const WorkerPlan& plan, const std::function<void()>& work) {
  std::optional<process::Child> worker =
      process::Child::Fork(process::Group::kOurs, [&] { return WorkConfined(plan, work); });
  const int status = worker ? worker->Reap() : -1;
  if (status >= 0) return OutcomeOf(plan, status);
  PrintError(plan.name, "no process for the decoder: " + LastErrorText());
  return Outcome::kFailed;
}

}  // namespace keldo::convert
