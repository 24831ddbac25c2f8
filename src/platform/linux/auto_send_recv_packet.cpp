#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>

#include "platform/index_ipc.h"
#include "util/deadline.h"
#include "util/handles.h"
#include "util/json_line.h"
#include "util/termination.h"

namespace keldoindexutils::ipc {
namespace {

using keldo::Clock;
using keldo::JsonLine;
using keldo::MillisecondsUntil;
using keldo::ParseJsonObject;
using keldo::UniqueFd;
using keldo::WaitForEvents;

constexpr std::size_t kLongestReply = 1024UL * 1024;
constexpr int kBacklogRetryMilliseconds = 20;

enum class Outcome { kDone, kFailed, kTimedOut };

// Identifies a daemon's socket. A daemon that restarts makes a new one.
struct SocketIdentity {
  dev_t device;
  ino_t inode;
  timespec changed;

  explicit SocketIdentity(const struct stat& status)
      : device(status.st_dev), inode(status.st_ino), changed(status.st_ctim) {}
  bool operator==(const SocketIdentity& other) const {
    return device == other.device && inode == other.inode &&
           changed.tv_sec == other.changed.tv_sec && changed.tv_nsec == other.changed.tv_nsec;
  }
};

// The daemon whose reply timed out. It is not asked again: a run asks once or twice for every
// photo, and would wait as long each time.
std::optional<SocketIdentity>& Wedged() {
  static std::optional<SocketIdentity> wedged;
  return wedged;
}

// Sleeps until the descriptor is ready, with termination requests let in.
Outcome AwaitReady(int fd, short events, Clock::time_point deadline) {
  while (Clock::now() < deadline) {
    std::array<pollfd, 1> polled{{{.fd = fd, .events = events, .revents = 0}}};
    const int ready = WaitForEvents(polled, MillisecondsUntil(deadline));
    if (ready > 0) return Outcome::kDone;
    if (ready < 0 && errno != EINTR) return Outcome::kFailed;
  }
  return Outcome::kTimedOut;
}

// A daemon with a full backlog refuses for the moment, and no event says when it accepts again.
Outcome Connect(int fd, const sockaddr_un& address, Clock::time_point deadline) {
  while (::connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    if (errno != EAGAIN && errno != EINTR) return Outcome::kFailed;
    if (Clock::now() >= deadline) return Outcome::kTimedOut;
    static_cast<void>(WaitForEvents({}, kBacklogRetryMilliseconds));
  }
  return Outcome::kDone;
}

// The socket is in a directory where everybody may make one.
bool IsServedByUs(int fd) {
  ucred peer{};
  socklen_t size = sizeof peer;
  if (::getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0) return false;
  return peer.uid == 0 || peer.uid == ::geteuid();
}

Outcome Send(int fd, std::string_view text, Clock::time_point deadline) {
  while (!text.empty()) {
    const ssize_t sent = ::send(fd, text.data(), text.size(), MSG_NOSIGNAL);
    if (sent >= 0) {
      text.remove_prefix(static_cast<std::size_t>(sent));
    } else if (errno == EAGAIN) {
      const Outcome ready = AwaitReady(fd, POLLOUT, deadline);
      if (ready != Outcome::kDone) return ready;
    } else if (errno != EINTR) {
      return Outcome::kFailed;
    }
  }
  return Outcome::kDone;
}

// Reads up to a newline or the end of the stream.
Outcome Receive(int fd, std::string& text, Clock::time_point deadline) {
  std::array<char, 16384> block;
  while (text.size() <= kLongestReply) {
    const ssize_t got = ::recv(fd, block.data(), block.size(), 0);
    if (got == 0) return Outcome::kDone;
    if (got > 0) {
      const std::string_view part(block.data(), static_cast<std::size_t>(got));
      text.append(part);
      if (part.find('\n') != std::string_view::npos) return Outcome::kDone;
    } else if (errno == EAGAIN) {
      const Outcome ready = AwaitReady(fd, POLLIN, deadline);
      if (ready != Outcome::kDone) return ready;
    } else if (errno != EINTR) {
      return Outcome::kFailed;
    }
  }
  return Outcome::kFailed;
}

Outcome Exchange(std::string_view socket_path, const std::string& request, std::string& reply,
                 Clock::time_point deadline) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (socket_path.size() >= sizeof address.sun_path) return Outcome::kFailed;
  std::memcpy(address.sun_path, socket_path.data(), socket_path.size());

  const UniqueFd fd(::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
  if (!fd.valid()) return Outcome::kFailed;
  Outcome outcome = Connect(fd.get(), address, deadline);
  if (outcome == Outcome::kDone && !IsServedByUs(fd.get())) outcome = Outcome::kFailed;
  if (outcome == Outcome::kDone) outcome = Send(fd.get(), request, deadline);
  if (outcome == Outcome::kDone) outcome = Receive(fd.get(), reply, deadline);
  return outcome;
}

}  // namespace

int AutoSendRecvPacket(const char* socket_path, int /*flags*/, Json::Value& value,
                       int timeout_seconds) {
  constexpr int kFailure = -1;
  const Json::Value request = std::move(value);
  value = Json::Value(Json::objectValue);

  struct stat status {};
  if (::stat(socket_path, &status) != 0 || !S_ISSOCK(status.st_mode)) return kFailure;
  const SocketIdentity daemon(status);
  if (Wedged() == daemon) return kFailure;

  const Clock::time_point deadline = Clock::now() + std::chrono::seconds(timeout_seconds);
  std::string reply;
  const Outcome outcome = Exchange(socket_path, JsonLine(request) + "\n", reply, deadline);
  if (outcome == Outcome::kTimedOut) Wedged() = daemon;
  return outcome == Outcome::kDone && ParseJsonObject(reply, value) ? 0 : kFailure;
}

}  // namespace keldoindexutils::ipc
