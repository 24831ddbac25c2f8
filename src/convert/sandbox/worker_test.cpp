#include "convert/sandbox/worker.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <new>
#include <thread>

#include "convert/cli/files.h"
#include "convert/pixels/image.h"
#include "support/temp_dir.h"

namespace {

using keldo::UniqueFd;
using keldo::convert::ImageError;
using keldo::convert::InputFile;
using keldo::convert::Outcome;
using keldo::convert::OutputFiles;
using keldo::convert::RunWorker;
using keldo::convert::Step;
using keldo::convert::WorkerPlan;
using keldo::testing::TempDir;

namespace fs = std::filesystem;

struct Result {
  Outcome outcome;
  std::string messages;
};

Result RunAndCapture(const std::function<void()>& work, const WorkerPlan& plan) {
  testing::internal::CaptureStderr();
  const Outcome outcome = RunWorker(plan, work);
  return {outcome, testing::internal::GetCapturedStderr()};
}

Result RunAndCapture(const std::function<void()>& work) {
  WorkerPlan plan{"a\nb.jpg", {}, {}, {}};
  return RunAndCapture(work, plan);
}

// Ends the worker by a signal that no sanitizer handles.
void Die(int signal) {
  static_cast<void>(std::signal(signal, SIG_DFL));
  static_cast<void>(raise(signal));
}

std::string Message(const std::string& reason) {
  return "convert-thumb: a\\nb.jpg: " + reason + "\n";
}

std::string Read(const std::string& path) {
  std::ifstream stream(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(stream), {}};
}

TEST(RunWorker, SuccessIsSilent) {
  const Result result = RunAndCapture([] {});
  EXPECT_EQ(result.outcome, Outcome::kDone);
  EXPECT_EQ(result.messages, "");
}

TEST(RunWorker, FailuresArePrintedOnce) {
  using Kind = ImageError::Kind;
  for (const Kind kind : {Kind::kCorrupt, Kind::kLimit, Kind::kOutput}) {
    const Result result = RunAndCapture([&] { throw ImageError(kind, "its\x1b reason"); });
    EXPECT_EQ(result.outcome, Outcome::kFailed);
    EXPECT_EQ(result.messages, Message("its\\x1b reason"));
  }
  const Result other = RunAndCapture([] { throw std::runtime_error("a library's reason"); });
  EXPECT_EQ(other.outcome, Outcome::kFailed);
  EXPECT_EQ(other.messages, Message("a library's reason"));
}

TEST(RunWorker, UnsupportedIsNotAFailure) {
  const Result result =
      RunAndCapture([] { throw ImageError(ImageError::Kind::kUnsupported, "strange"); });
  EXPECT_EQ(result.outcome, Outcome::kUnsupported);
  EXPECT_EQ(result.messages, "");
}

TEST(RunWorker, ReportsTooLittleMemory) {
  const Result result = RunAndCapture([] { throw std::bad_alloc(); });
  EXPECT_EQ(result.outcome, Outcome::kFailed);
  EXPECT_EQ(result.messages, Message("it needs more memory than the limit allows"));
}

TEST(RunWorker, CrashesArePrinted) {
  for (const auto& [signal, reason] : std::vector<std::pair<int, std::string>>{
           {SIGSEGV, "the decoder crashed (signal 11)"},
           {SIGABRT, "the decoder crashed (signal 6)"},
           {SIGSYS, "the decoder tried what the sandbox forbids and was stopped"},
           {SIGBUS, "the file shrank while it was read, or cannot be read"},
           {SIGTERM, "the decoder was told to stop (signal 15)"},
           {SIGXCPU, "reading it took longer than the CPU-time limit of 300 s"}}) {
    const Result result = RunAndCapture([signal = signal] { Die(signal); });
    EXPECT_EQ(result.outcome, Outcome::kFailed);
    EXPECT_EQ(result.messages, Message(reason));
  }
}

TEST(RunWorker, ALibraryThatExitsIsAFailure) {
  const Result result = RunAndCapture([] { _exit(42); });
  EXPECT_EQ(result.outcome, Outcome::kFailed);
  EXPECT_EQ(result.messages, Message("the decoder gave up"));
}

TEST(RunWorker, AnEndlessLoopEnds) {
  WorkerPlan plan{"a\nb.jpg", {}, {}, {}};
  plan.limits.cpu_seconds = 1;
  const Result result = RunAndCapture(
      [] {
        for (;;)
          __asm__ volatile("");
      },
      plan);
  EXPECT_EQ(result.outcome, Outcome::kFailed);
  EXPECT_EQ(result.messages, Message("reading it took longer than the CPU-time limit of 1 s"));
}

TEST(RunWorker, AnEndlessWaitEnds) {
  WorkerPlan plan{"a\nb.jpg", {}, {}, {}};
  plan.limits.seconds = 1;
  // We may have inherited this.
  sigset_t alarm_only;
  sigemptyset(&alarm_only);
  sigaddset(&alarm_only, SIGALRM);
  const auto before = std::signal(SIGALRM, SIG_IGN);
  sigprocmask(SIG_BLOCK, &alarm_only, nullptr);
  const Result result = RunAndCapture([] { sleep(20); }, plan);
  sigprocmask(SIG_UNBLOCK, &alarm_only, nullptr);
  std::signal(SIGALRM, before);
  EXPECT_EQ(result.outcome, Outcome::kFailed);
  EXPECT_EQ(result.messages, Message("reading it took longer than the limit of 1 s"));
}

TEST(RunWorker, ReportsAFileThatShrinks) {
  const TempDir dir;
  const std::string path = dir.path() + "/photo";
  std::ofstream(path) << std::string(100'000, 'x');
  InputFile input(path);
  input.Map();
  fs::resize_file(path, 0);
  const Result result = RunAndCapture([&] {
    static_cast<void>(std::signal(SIGBUS, SIG_DFL));
    static_cast<void>(*static_cast<const volatile std::uint8_t*>(&input.bytes()[50'000]));
  });
  EXPECT_EQ(result.outcome, Outcome::kFailed);
  EXPECT_EQ(result.messages, Message("the file shrank while it was read, or cannot be read"));
}

TEST(RunWorker, ConfinesTheWork) {
  const TempDir dir;
  const std::string path = dir.path() + "/created";
  const auto create = [&] {
    if (open(path.c_str(), O_WRONLY | O_CREAT, 0600) >= 0)
      throw ImageError(ImageError::Kind::kOutput, "created");
  };
  WorkerPlan plan{"a\nb.jpg", {}, {}, {}};
  plan.parts.landlock = true;
  plan.parts.seccomp = true;
  EXPECT_EQ(RunAndCapture(create, plan).outcome, Outcome::kDone);
  EXPECT_FALSE(fs::exists(path));
  const Result result =
      RunAndCapture([] { static_cast<void>(socket(AF_INET, SOCK_STREAM, 0)); }, plan);
  EXPECT_EQ(result.messages, Message("the decoder tried what the sandbox forbids and was stopped"));
}

TEST(RunWorker, MemoryIsLimited) {
  if (keldo::convert::SandboxParts::kSanitized) return;
  const Result result = RunAndCapture([] {
    // More than the limit.
    const std::vector<char> much(std::size_t{5} << 30);
    if (much.back() != 0) _exit(1);
  });
  EXPECT_EQ(result.outcome, Outcome::kFailed);
  EXPECT_EQ(result.messages, Message("it needs more memory than the limit allows"));
}

TEST(RunWorker, WorksWhereSigchldIsIgnored) {
  const auto before = std::signal(SIGCHLD, SIG_IGN);
  EXPECT_EQ(RunAndCapture([] {}).outcome, Outcome::kDone);
  std::signal(SIGCHLD, before);
}

TEST(RunWorker, NotesWhatTheKernelLacks) {
  const pid_t child = fork();
  if (child == 0) {
    sock_filter program[] = {BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
                             BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_landlock_create_ruleset, 0, 1),
                             BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | ENOSYS),
                             BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW)};
    const sock_fprog filter{4, program};
    prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0);
    prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter);
    WorkerPlan plan{"a\nb.jpg", {}, {}, {}};
    plan.parts.landlock = true;
    const Result result = RunAndCapture([] {}, plan);
    _exit(result.outcome == Outcome::kDone &&
                  result.messages ==
                      "convert-thumb: note: photos are read in a weaker sandbox, "
                      "since this kernel lacks Landlock\n"
              ? 0
              : 1);
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
}

TEST(RunWorker, TheWorkerDiesWithItsParent) {
  int pipe_ends[2];
  ASSERT_EQ(pipe2(pipe_ends, O_CLOEXEC), 0);
  UniqueFd reader(pipe_ends[0]);
  UniqueFd writer(pipe_ends[1]);
  const pid_t parent = fork();
  if (parent == 0) {
    const int kept[] = {writer.get()};
    WorkerPlan plan{"photo", kept, {}, {}};
    static_cast<void>(RunWorker(plan, [&] {
      if (write(writer.get(), "s", 1) != 1) _exit(1);
      std::this_thread::sleep_for(std::chrono::seconds(60));
    }));
    _exit(0);
  }
  writer.reset();
  char byte = 0;
  ASSERT_EQ(read(reader.get(), &byte, 1), 1);
  kill(parent, SIGTERM);
  ASSERT_EQ(waitpid(parent, nullptr, 0), parent);
  // The writing end of the pipe is the worker's.
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(read(reader.get(), &byte, 1), 0);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(30));
}

// The outputs of a run, depending on how it ends.
class OutputsOfARun : public testing::Test {
 protected:
  // Runs work that writes to both outputs.
  Outcome RunTo(const std::function<void(std::span<const int>)>& work) {
    OutputFiles outputs;
    std::vector<Step> steps(2);
    steps[0].output = new_;
    steps[1].output = old_;
    std::ofstream(old_) << "as it was";
    EXPECT_TRUE(outputs.Open(steps, {}));
    const Result result = RunAndCapture([&] { work(outputs.descriptors()); },
                                        {"photo", outputs.descriptors(), {}, {}});
    if (result.outcome == Outcome::kDone) outputs.Close();
    return result.outcome;
  }

  TempDir dir_;
  std::string new_ = dir_.path() + "/new.jpg";
  std::string old_ = dir_.path() + "/old.jpg";
};

TEST_F(OutputsOfARun, StayAfterSuccess) {
  EXPECT_EQ(RunTo([](std::span<const int> outputs) {
              for (const int fd : outputs) {
                if (ftruncate(fd, 0) != 0 || write(fd, "thumbnail", 9) != 9) _exit(1);
              }
            }),
            Outcome::kDone);
  EXPECT_EQ(Read(new_), "thumbnail");
  EXPECT_EQ(Read(old_), "thumbnail");
}

TEST_F(OutputsOfARun, AreRemovedAfterAFailureHalfWay) {
  const auto half = [](std::span<const int> outputs) {
    if (write(outputs[0], "half", 4) != 4) _exit(1);
  };
  const std::vector<std::function<void(std::span<const int>)>> ways{
      [&](auto outputs) { half(outputs), Die(SIGSEGV); },
      [&](auto outputs) { half(outputs), Die(SIGKILL); },
      [&](auto outputs) { half(outputs), throw ImageError(ImageError::Kind::kCorrupt, "cut"); },
      [&](auto outputs) { half(outputs), _exit(9); }};
  for (const auto& way : ways) {
    EXPECT_EQ(RunTo(way), Outcome::kFailed);
    EXPECT_FALSE(fs::exists(new_));
    EXPECT_EQ(Read(old_), "as it was");
  }
}

}  // namespace
