#include "plugind/daemon_test_support.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <thread>

namespace keldo::plugind {
namespace {

constexpr int kPatienceMs = 10000;

void AwaitReady(int fd, short events, const char* what) {
  pollfd polled{.fd = fd, .events = events, .revents = 0};
  if (::poll(&polled, 1, kPatienceMs) != 1) throw std::runtime_error(what);
}

UniqueFd ConnectedTo(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::memcpy(address.sun_path, path.data(), std::min(path.size(), sizeof address.sun_path - 1));
  UniqueFd fd(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (::connect(fd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    fd.reset();
  }
  return fd;
}

}  // namespace

Client::Client(const std::string& socket_path) : fd_(ConnectedTo(socket_path)) {
  if (!fd_.valid()) throw std::runtime_error("nobody listens on " + socket_path);
}

bool Client::Send(std::string_view bytes) {
  while (!bytes.empty()) {
    AwaitReady(fd_.get(), POLLOUT, "the daemon does not read");
    const ssize_t sent = ::send(fd_.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    if (sent < 0 && errno != EAGAIN) return false;
    if (sent > 0) bytes.remove_prefix(static_cast<std::size_t>(sent));
  }
  return true;
}

void Client::EndSending() {
  ::shutdown(fd_.get(), SHUT_WR);
}

std::string Client::Line() {
  std::array<char, 4096> block{};
  while (true) {
    const std::size_t newline = received_.find('\n');
    if (newline != std::string::npos) {
      std::string line = received_.substr(0, newline);
      received_.erase(0, newline + 1);
      return line;
    }
    AwaitReady(fd_.get(), POLLIN, "the daemon does not answer");
    const ssize_t got = ::recv(fd_.get(), block.data(), block.size(), 0);
    if (got <= 0) return "(closed)" + received_;
    received_.append(block.data(), static_cast<std::size_t>(got));
  }
}

DaemonProcess::~DaemonProcess() {
  if (pid_ <= 0) return;
  ::kill(pid_, SIGKILL);
  ::waitpid(pid_, nullptr, 0);
}

void DaemonProcess::Spawn(const Arguments& more) {
  Arguments arguments = {KELDO_PLUGIND, "--verbose",  "--socket",
                         socket(),      "--database", database()};
  arguments.insert(arguments.end(), more.begin(), more.end());
  std::vector<char*> argv;
  for (std::string& argument : arguments)
    argv.push_back(argument.data());
  argv.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  const std::string log = dir_.path() + "/log";
  for (const int fd : {STDOUT_FILENO, STDERR_FILENO}) {
    posix_spawn_file_actions_addopen(&actions, fd, log.c_str(), O_WRONLY | O_CREAT | O_APPEND,
                                     0644);
  }
  // The tests may run with SIGHUP ignored.
  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  sigset_t defaults;
  sigemptyset(&defaults);
  sigaddset(&defaults, SIGHUP);
  posix_spawnattr_setsigdefault(&attributes, &defaults);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF);
  const int error =
      ::posix_spawn(&pid_, KELDO_PLUGIND, &actions, &attributes, argv.data(), environ);
  posix_spawnattr_destroy(&attributes);
  posix_spawn_file_actions_destroy(&actions);
  if (error != 0) throw std::runtime_error("cannot start the daemon");
}

void DaemonProcess::Start(const Arguments& more) {
  Spawn(more);
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(kPatienceMs);
  while (!ConnectedTo(socket()).valid()) {
    if (std::chrono::steady_clock::now() > deadline || ::waitpid(pid_, nullptr, WNOHANG) != 0) {
      throw std::runtime_error("the daemon does not listen: " + Log());
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
}

int DaemonProcess::Run(const Arguments& more) {
  Spawn(more);
  return Wait();
}

void DaemonProcess::Signal(int signal) const {
  ::kill(pid_, signal);
}

int DaemonProcess::Wait() {
  const UniqueFd process(static_cast<int>(::syscall(SYS_pidfd_open, pid_, 0)));
  AwaitReady(process.get(), POLLIN, "the daemon does not end");
  int status = 0;
  if (::waitpid(pid_, &status, 0) != pid_) throw std::runtime_error("waitpid");
  pid_ = -1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

std::string DaemonProcess::Log() const {
  std::ostringstream text;
  text << std::ifstream(dir_.path() + "/log").rdbuf();
  return text.str();
}

int DaemonProcess::Logged(const std::string& text) const {
  const std::string log = Log();
  int count = 0;
  for (std::size_t at = log.find(text); at != std::string::npos; at = log.find(text, at + 1)) {
    ++count;
  }
  return count;
}

}  // namespace keldo::plugind
