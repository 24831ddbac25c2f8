// A run in the sandbox: starts bubblewrap, talks to the sandbox's first process, and collects what
// the run left behind.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>

#include <array>
#include <csignal>
#include <filesystem>
#include <sstream>
#include <stdexcept>

#include "e2e/sandbox.h"

namespace keldo::testing {
namespace {

constexpr int kControlInChild = 3;
constexpr const char* kRecord = "/standins/record";
constexpr const char* kOutput = "/harness/stdout";
constexpr const char* kErrors = "/harness/stderr";

class FileActions {
 public:
  FileActions() { ::posix_spawn_file_actions_init(&actions_); }
  ~FileActions() { ::posix_spawn_file_actions_destroy(&actions_); }
  FileActions(const FileActions&) = delete;
  FileActions& operator=(const FileActions&) = delete;

  void Open(int fd, const std::string& path, int flags) {
    ::posix_spawn_file_actions_addopen(&actions_, fd, path.c_str(), flags, 0666);
  }
  void Duplicate(int from, int to) { ::posix_spawn_file_actions_adddup2(&actions_, from, to); }
  [[nodiscard]] const posix_spawn_file_actions_t* get() const { return &actions_; }

 private:
  posix_spawn_file_actions_t actions_{};
};

pid_t Spawn(const FileActions& actions, std::vector<std::string> command) {
  std::vector<char*> pointers;
  pointers.reserve(command.size() + 1);
  for (std::string& word : command)
    pointers.push_back(word.data());
  pointers.push_back(nullptr);
  pid_t child = -1;
  if (::posix_spawnp(&child, pointers[0], actions.get(), nullptr, pointers.data(), environ) != 0) {
    throw std::runtime_error("cannot start " + command[0]);
  }
  return child;
}

}  // namespace

Running::Running(Sandbox& box, const std::vector<std::string>& arguments,
                 std::optional<SignalAt> signal_at)
    : box_(box) {
  std::array<int, 2> sockets{};
  if (::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, sockets.data()) != 0) {
    throw std::runtime_error("no socket pair");
  }
  control_.reset(sockets[0]);
  const UniqueFd child_end(sockets[1]);
  box.PrepareKept();
  box.Remove(kRecord);

  FileActions actions;
  actions.Open(STDIN_FILENO, "/dev/null", O_RDONLY);
  actions.Open(STDOUT_FILENO, box.Outside(kOutput), O_WRONLY | O_CREAT | O_TRUNC);
  actions.Open(STDERR_FILENO, box.Outside(kErrors), O_WRONLY | O_CREAT | O_TRUNC);
  actions.Duplicate(child_end.get(), kControlInChild);
  bwrap_ = Spawn(actions, box.Command(arguments, signal_at));
}

Running::~Running() {
  if (bwrap_ < 0) return;
  ::kill(bwrap_, SIGKILL);
  ::waitpid(bwrap_, nullptr, 0);
}

void Running::Signal(int signal) {
  static_cast<void>(::send(control_.get(), &signal, sizeof signal, MSG_NOSIGNAL));
}

RunResult Running::Finish() {
  std::array<char, 65536> packet{};
  const ssize_t size = ::recv(control_.get(), packet.data(), packet.size(), 0);
  ::waitpid(bwrap_, nullptr, 0);
  bwrap_ = -1;

  RunResult result;
  result.standard_output = box_.Read(kOutput);
  result.standard_error = box_.Read(kErrors);
  if (size <= 0) throw std::runtime_error("the sandbox failed: " + result.standard_error);
  std::istringstream report({packet.data(), static_cast<std::size_t>(size)});
  int status = 0;
  report >> status >> result.system_calls >> std::ws;
  if (WIFEXITED(status)) result.exit_status = WEXITSTATUS(status);
  if (WIFSIGNALED(status)) result.signal = WTERMSIG(status);
  for (std::string name; std::getline(report, name);)
    result.survivors.push_back(name);

  result.log = box_.log_.TakeLines();
  result.invocations = ReadInvocations(box_.Outside(kRecord));
  if (box_.daemon_ != nullptr) result.requests = box_.daemon_->TakeRequests();
  // A sanitizer's findings in the program or its children.
  EXPECT_EQ(result.standard_error.find("Sanitizer"), std::string::npos) << result.standard_error;
  EXPECT_EQ(result.standard_error.find("runtime error"), std::string::npos)
      << result.standard_error;
  return result;
}

}  // namespace keldo::testing
