#include "e2e/scripted_daemon.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>

#include <array>
#include <stdexcept>
#include <utility>

#include "e2e/unix_socket.h"

namespace keldo::testing {

ScriptedDaemon::ScriptedDaemon(const std::string& path, Answer answer)
    : answer_(std::move(answer)),
      socket_(BindUnixSocket(path, SOCK_STREAM)),
      stop_(::eventfd(0, EFD_CLOEXEC)) {
  if (::listen(socket_.get(), 16) != 0) throw std::runtime_error("cannot listen on " + path);
  thread_ = std::thread([this] { Serve(); });
}

ScriptedDaemon::~ScriptedDaemon() {
  ::eventfd_write(stop_.get(), 1);
  thread_.join();
}

std::vector<std::string> ScriptedDaemon::TakeRequests() {
  const std::lock_guard lock(mutex_);
  return std::exchange(requests_, {});
}

// False if the daemon must end.
bool ScriptedDaemon::WaitReadable(int fd) const {
  std::array<pollfd, 2> events = {{{fd, POLLIN, 0}, {stop_.get(), POLLIN, 0}}};
  while (::poll(events.data(), events.size(), -1) < 0) {
  }
  return events[1].revents == 0;
}

void ScriptedDaemon::Serve() {
  while (WaitReadable(socket_.get())) {
    const UniqueFd connection(::accept4(socket_.get(), nullptr, nullptr, SOCK_CLOEXEC));
    if (connection.valid()) ServeConnection(connection.get());
  }
}

void ScriptedDaemon::ServeConnection(int connection) {
  std::string pending;
  std::array<char, 8192> buffer{};
  while (WaitReadable(connection)) {
    const ssize_t size = ::recv(connection, buffer.data(), buffer.size(), 0);
    if (size <= 0) return;
    pending.append(buffer.data(), static_cast<std::size_t>(size));
    for (std::size_t end = pending.find('\n'); end != std::string::npos; end = pending.find('\n')) {
      const std::string request = pending.substr(0, end);
      pending.erase(0, end + 1);
      {
        const std::lock_guard lock(mutex_);
        requests_.push_back(request);
      }
      const std::string reply = answer_(request);
      if (reply.empty()) return;
      if (::send(connection, (reply + "\n").data(), reply.size() + 1, MSG_NOSIGNAL) < 0) return;
    }
  }
}

ScriptedDaemon::Answer AnswerVersion(int version) {
  return [version](const std::string&) {
    return R"({"success":true,"version":)" + std::to_string(version) + "}";
  };
}

std::string VersionRequest(const std::string& path) {
  return R"({"command":"GET_INDEX_VERSION","path":")" + path + "\"}";
}

std::string PostRequest(const std::string& path) {
  return R"({"command":"POST_PHOTO_CONVERT","path":")" + path + "\"}";
}

}  // namespace keldo::testing
