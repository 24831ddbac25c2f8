#include "plugind/server.h"

#include <sys/epoll.h>
#include <sys/socket.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <system_error>
#include <utility>

#include "util/deadline.h"

namespace keldo::plugind {
namespace {

constexpr std::size_t kEventsPerWait = 64;
constexpr int kAcceptsPerWait = 128;
constexpr std::chrono::seconds kAcceptPause{1};
constexpr std::chrono::hours kForever{1};

[[noreturn]] void ThrowErrno(const char* what) {
  throw std::system_error(errno, std::generic_category(), what);
}

// The process at the other end, as it was when it connected.
std::optional<ucred> PeerOf(int socket) {
  ucred peer{};
  socklen_t size = sizeof peer;
  if (::getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0) return std::nullopt;
  return peer;
}

}  // namespace

Server::Server(ListenSocket& socket, Answerer answerer, ServerLimits limits)
    : socket_(socket),
      answerer_(std::move(answerer)),
      limits_(limits),
      epoll_(::epoll_create1(EPOLL_CLOEXEC)) {
  if (!epoll_.valid()) ThrowErrno("epoll_create1");
  Watch(EPOLL_CTL_ADD, socket_.fd(), EPOLLIN);
}

void Server::Run(int stop_fd) {
  stop_fd_ = stop_fd;
  Watch(EPOLL_CTL_ADD, stop_fd, EPOLLIN);
  while (!stopping_) {
    ServeUntil(NextDeadline());
    const Clock::time_point now = Clock::now();
    DropIdleClients(now);
    ResumeAccepting(now);
  }
  Finish();
}

void Server::Watch(int operation, int fd, std::uint32_t events) {
  epoll_event event{};
  event.events = events;
  event.data.fd = fd;
  if (::epoll_ctl(epoll_.get(), operation, fd, &event) != 0) ThrowErrno("epoll_ctl");
}

void Server::WatchClient(int operation, const Connection& client) {
  const std::uint32_t read = client.wants_to_read() ? EPOLLIN : 0U;
  const std::uint32_t write = client.wants_to_write() ? EPOLLOUT : 0U;
  Watch(operation, client.fd(), read | write);
}

void Server::ServeUntil(Clock::time_point until) {
  std::array<epoll_event, kEventsPerWait> events{};
  const int count = ::epoll_wait(epoll_.get(), events.data(), static_cast<int>(events.size()),
                                 MillisecondsUntil(until));
  if (count < 0 && errno != EINTR) ThrowErrno("epoll_wait");
  for (int i = 0; i < count; ++i) {
    const int fd = events[static_cast<std::size_t>(i)].data.fd;
    if (fd == stop_fd_) {
      stopping_ = true;
    } else if (fd == socket_.fd()) {
      Accept();
    } else {
      ServeClient(fd);
    }
  }
}

void Server::Accept() {
  for (int i = 0; i < kAcceptsPerWait; ++i) {
    UniqueFd client(::accept4(socket_.fd(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
    if (client.valid()) {
      Admit(std::move(client));
    } else if (errno == EAGAIN) {
      return;
    } else if (errno != EINTR && errno != ECONNABORTED) {
      return PauseAccepting();
    }
  }
}

void Server::Admit(UniqueFd socket) {
  const std::optional<ucred> peer = PeerOf(socket.get());
  if (!peer || !IsUserServed(peer->uid, ::geteuid())) {
    syslog(LOG_WARNING, "turned away a client of user %d", peer ? static_cast<int>(peer->uid) : -1);
    return;
  }
  if (clients_.size() >= limits_.max_clients) {
    if (!std::exchange(turning_away_, true)) {
      syslog(LOG_WARNING, "turning clients away: %zu are connected", clients_.size());
    }
    return;
  }
  turning_away_ = false;
  const int fd = socket.get();
  const auto [client, added] = clients_.try_emplace(fd, std::move(socket), peer->pid, Clock::now());
  WatchClient(EPOLL_CTL_ADD, client->second);
}

// Out of descriptors or memory. Without the pause the waiting client would wake us again and again.
void Server::PauseAccepting() {
  syslog(LOG_ERR, "cannot accept a client: %s", std::generic_category().message(errno).c_str());
  accept_again_ = Clock::now() + kAcceptPause;
  Watch(EPOLL_CTL_MOD, socket_.fd(), 0);
}

void Server::ResumeAccepting(Clock::time_point now) {
  if (!accept_again_ || now < *accept_again_) return;
  accept_again_.reset();
  Watch(EPOLL_CTL_MOD, socket_.fd(), EPOLLIN);
}

void Server::ServeClient(int fd) {
  const auto client = clients_.find(fd);
  if (client == clients_.end()) return;
  if (client->second.Serve(answerer_, Clock::now())) {
    WatchClient(EPOLL_CTL_MOD, client->second);
  } else {
    clients_.erase(client);
  }
}

void Server::DropIdleClients(Clock::time_point now) {
  std::erase_if(clients_, [&](const auto& entry) {
    const Connection& client = entry.second;
    if (now - client.last_progress() < limits_.idle_time) return false;
    syslog(LOG_WARNING, "dropped process %d, which %s", static_cast<int>(client.pid()),
           client.wants_to_write() ? "does not read its replies" : "sends no whole request");
    return true;
  });
}

Clock::time_point Server::NextDeadline() const {
  Clock::time_point next = accept_again_.value_or(Clock::now() + kForever);
  for (const auto& [fd, client] : clients_) {
    next = std::min(next, client.last_progress() + limits_.idle_time);
  }
  return next;
}

void Server::Finish() {
  Watch(EPOLL_CTL_DEL, stop_fd_, 0);
  // Remove the file first, so that nobody connects without being served.
  socket_.RemoveFile();
  Accept();
  Watch(EPOLL_CTL_DEL, socket_.fd(), 0);
  for (auto client = clients_.begin(); client != clients_.end();) {
    if (client->second.ServeLast(answerer_, Clock::now())) {
      WatchClient(EPOLL_CTL_MOD, client->second);
      ++client;
    } else {
      client = clients_.erase(client);
    }
  }
  const Clock::time_point end = Clock::now() + limits_.stop_time;
  while (!clients_.empty() && Clock::now() < end)
    ServeUntil(end);
}

}  // namespace keldo::plugind
