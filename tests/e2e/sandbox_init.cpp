// The first process of a sandbox: starts the program under test, forwards signals to it, reaps
// orphans, and reports what was still running after the program's end.
//
//   sandbox_init FD [--signal-at SIGNAL CALL] [--keep FROM TO]... -- PROGRAM ARGV0 ARG...
//
// FD is a packet socket to the test. Each packet that we receive is a signal number for the
// program. After the program's end we send a packet with its wait status, the system calls that we
// counted, and then, one per line, the command names of the processes that outlived it by more
// than five seconds. "--signal-at" counts the system calls of the program, without its children,
// and sends it the signal as it enters the given one; no call has the number 0. "--keep" copies a
// directory before the sandbox and its memory file systems disappear.
#include <poll.h>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "util/handles.h"

namespace keldo::testing {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

struct Options {
  int control = -1;
  bool trace = false;
  int signal = 0;        ///< The signal to send,
  long signal_call = 0;  ///< as the program enters this system call.
  std::vector<std::pair<std::string, std::string>> keep;
  std::string program;
  std::vector<char*> arguments;  ///< Ends with a null pointer.
};

Options ParseOptions(int argc, char** argv) {
  Options options;
  int next = 1;
  options.control = std::stoi(argv[next++]);
  if (std::string(argv[next]) == "--signal-at") {
    options.trace = true;
    options.signal = std::stoi(argv[next + 1]);
    options.signal_call = std::stol(argv[next + 2]);
    next += 3;
  }
  while (std::string(argv[next]) == "--keep") {
    options.keep.emplace_back(argv[next + 1], argv[next + 2]);
    next += 3;
  }
  ++next;  // "--"
  options.program = argv[next++];
  options.arguments.assign(argv + next, argv + argc + 1);
  return options;
}

pid_t StartProgram(const Options& options) {
  const pid_t child = ::fork();
  if (child < 0) throw std::runtime_error("cannot fork");
  if (child > 0) return child;
  sigset_t none;
  sigemptyset(&none);
  ::sigprocmask(SIG_SETMASK, &none, nullptr);
  ::close(options.control);
  if (options.trace) ::ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
  ::execv(options.program.c_str(), options.arguments.data());
  std::cerr << "cannot execute " << options.program << '\n';
  std::_Exit(127);
}

struct Trace {
  long calls = 0;   ///< The system calls up to the signal, or all of them.
  int status = -1;  ///< The wait status if the program has ended.
};

// Follows the program from its start to the system call that the signal belongs to. From there on
// it runs undisturbed: SIGKILL ends it before the call, any other signal may interrupt the call.
Trace TraceProgram(const Options& options, pid_t program) {
  Trace trace;
  int status = 0;
  if (::waitpid(program, &status, 0) != program || !WIFSTOPPED(status)) {
    throw std::runtime_error("cannot trace the program");
  }
  ::ptrace(PTRACE_SETOPTIONS, program, nullptr, PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL);
  bool in_call = false;
  for (long deliver = 0;;) {
    ::ptrace(PTRACE_SYSCALL, program, nullptr, deliver);
    if (::waitpid(program, &status, 0) != program) throw std::runtime_error("lost the program");
    if (!WIFSTOPPED(status)) break;
    const bool at_call = WSTOPSIG(status) == (SIGTRAP | 0x80);
    deliver = at_call ? 0 : WSTOPSIG(status);
    if (!at_call) continue;
    in_call = !in_call;
    if (!in_call || ++trace.calls != options.signal_call) continue;
    ::kill(program, options.signal);
    ::ptrace(PTRACE_DETACH, program, nullptr, nullptr);
    return trace;
  }
  trace.status = status;
  return trace;
}

// Reaps the processes that have ended. Returns the wait status of `program` if it is among them,
// else -1.
int ReapChildren(pid_t program) {
  int program_status = -1;
  int status = 0;
  for (pid_t child = ::waitpid(-1, &status, WNOHANG); child > 0;
       child = ::waitpid(-1, &status, WNOHANG)) {
    if (child == program) program_status = status;
  }
  return program_status;
}

// Waits for the program's end and forwards signals. If the test itself ends, so do we, and the
// kernel kills the rest of the sandbox.
int WaitForProgram(const Options& options, pid_t program, int child_signals) {
  for (;;) {
    pollfd events[] = {{options.control, POLLIN, 0}, {child_signals, POLLIN, 0}};
    if (::poll(events, 2, -1) < 0 && errno != EINTR) throw std::runtime_error("cannot poll");
    if (events[0].revents != 0) {
      int signal = 0;
      if (::recv(options.control, &signal, sizeof signal, 0) != sizeof signal) std::_Exit(1);
      ::kill(program, signal);
    }
    if (events[1].revents != 0) {
      signalfd_siginfo info{};
      if (::read(child_signals, &info, sizeof info) < 0) throw std::runtime_error("no signal info");
      const int status = ReapChildren(program);
      if (status != -1) return status;
    }
  }
}

std::vector<std::string> OtherProcesses() {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
    const std::string pid = entry.path().filename();
    if (pid.find_first_not_of("0123456789") != std::string::npos || pid == "1") continue;
    std::ifstream comm(entry.path() / "comm");
    std::string name;
    if (std::getline(comm, name)) names.push_back(name);
  }
  return names;
}

// Killed processes end a moment later, so they get five seconds.
std::vector<std::string> Survivors() {
  const auto deadline = steady_clock::now() + std::chrono::seconds(5);
  for (;;) {
    ReapChildren(0);
    std::vector<std::string> names = OtherProcesses();
    if (names.empty() || steady_clock::now() > deadline) return names;
    std::this_thread::sleep_for(milliseconds(1));
  }
}

int Main(int argc, char** argv) {
  const Options options = ParseOptions(argc, argv);
  sigset_t child_ended;
  sigemptyset(&child_ended);
  sigaddset(&child_ended, SIGCHLD);
  ::sigprocmask(SIG_BLOCK, &child_ended, nullptr);
  const UniqueFd child_signals(::signalfd(-1, &child_ended, SFD_CLOEXEC));

  const pid_t program = StartProgram(options);
  Trace trace;
  if (options.trace) trace = TraceProgram(options, program);
  if (trace.status == -1) trace.status = WaitForProgram(options, program, child_signals.get());
  std::string report = std::to_string(trace.status) + " " + std::to_string(trace.calls) + "\n";
  for (const std::string& name : Survivors())
    report += name + "\n";
  for (const auto& [from, to] : options.keep) {
    std::filesystem::copy(
        from, to,
        std::filesystem::copy_options::recursive | std::filesystem::copy_options::copy_symlinks);
  }
  const auto size = static_cast<ssize_t>(report.size());
  return ::send(options.control, report.data(), report.size(), 0) == size ? 0 : 1;
}

}  // namespace
}  // namespace keldo::testing

int main(int argc, char** argv) {
  try {
    return keldo::testing::Main(argc, argv);
  } catch (const std::exception& error) {
    std::cerr << "sandbox: " << error.what() << '\n';
    return 1;
  }
}
