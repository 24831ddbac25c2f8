#include "plugind/listen_socket.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <optional>
#include <system_error>
#include <thread>
#include <utility>

namespace keldo::plugind {
namespace {

constexpr int kBacklog = 128;
constexpr mode_t kOwnerOnly = 0177;
constexpr int kLockAttempts = 20;
constexpr std::chrono::milliseconds kLockPause{100};

std::string ErrnoText() {
  return std::generic_category().message(errno);
}

std::optional<sockaddr_un> AddressOf(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.empty() || path.size() >= sizeof address.sun_path) return std::nullopt;
  std::memcpy(address.sun_path, path.data(), path.size());
  return address;
}

const sockaddr* Generic(const sockaddr_un& address) {
  return reinterpret_cast<const sockaddr*>(&address);
}

UniqueFd NewSocket() {
  return UniqueFd(::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
}

// Between bind and listen our socket looks like one left behind. The lock keeps a second daemon
// from removing it then. It is on the directory, so that no lock file stays, and the wait for it is
// short, since anybody may hold it.
UniqueFd LockDirectoryOf(const std::string& path) {
  const std::string directory = std::filesystem::path(path).parent_path().native();
  UniqueFd fd(
      ::open(directory.empty() ? "." : directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  for (int attempt = 1; fd.valid() && ::flock(fd.get(), LOCK_EX | LOCK_NB) != 0; ++attempt) {
    if (errno != EWOULDBLOCK || attempt == kLockAttempts) {
      fd.reset();
      errno = EWOULDBLOCK;
      break;
    }
    std::this_thread::sleep_for(kLockPause);
  }
  return fd;
}

// Why we must not remove what is at `path`; empty when we may.
std::string WhyNotStale(const std::string& path, const struct stat& file,
                        const sockaddr_un& address) {
  if (!S_ISSOCK(file.st_mode)) return path + " exists and is no socket";
  if (!IsUserServed(file.st_uid, ::geteuid())) {
    return path + " belongs to user " + std::to_string(file.st_uid);
  }
  const UniqueFd probe = NewSocket();
  if (!probe.valid()) return "cannot make a socket: " + ErrnoText();
  if (::connect(probe.get(), Generic(address), sizeof address) == 0 || errno == EAGAIN) {
    return "another daemon is listening on " + path;
  }
  if (errno == ECONNREFUSED) return {};
  return "cannot tell whether " + path + " is in use: " + ErrnoText();
}

std::string RemoveStaleLocked(const std::string& path, const sockaddr_un& address) {
  struct stat file {};
  if (::lstat(path.c_str(), &file) != 0) {
    return errno == ENOENT ? std::string() : "cannot look at " + path + ": " + ErrnoText();
  }
  std::string reason = WhyNotStale(path, file, address);
  if (reason.empty() && ::unlink(path.c_str()) != 0 && errno != ENOENT) {
    reason = "cannot remove the old " + path + ": " + ErrnoText();
  }
  return reason;
}

// The file's mode comes from the umask, so that there is no moment at which others may connect.
bool BindForOwner(int socket, const sockaddr_un& address) {
  const mode_t before = ::umask(kOwnerOnly);
  const bool bound = ::bind(socket, Generic(address), sizeof address) == 0;
  const int saved_errno = errno;
  ::umask(before);
  errno = saved_errno;
  return bound;
}

}  // namespace

ListenSocket::ListenSocket(UniqueFd socket, std::string path, const struct stat& file)
    : socket_(std::move(socket)),
      path_(std::move(path)),
      device_(file.st_dev),
      inode_(file.st_ino) {}

ListenSocket::~ListenSocket() {
  RemoveFile();
}

ListenSocket::OpenResult ListenSocket::Open(const std::string& path) {
  const std::optional<sockaddr_un> address = AddressOf(path);
  if (!address) return {.socket = nullptr, .problem = "the socket's path is empty or too long"};
  const UniqueFd lock = LockDirectoryOf(path);
  if (!lock.valid()) {
    return {.socket = nullptr,
            .problem = "cannot lock the directory of " + path + ": " + ErrnoText()};
  }
  std::string problem = RemoveStaleLocked(path, *address);
  if (!problem.empty()) return {.socket = nullptr, .problem = std::move(problem)};
  UniqueFd socket = NewSocket();
  struct stat file {};
  if (!socket.valid() || !BindForOwner(socket.get(), *address) ||
      ::lstat(path.c_str(), &file) != 0) {
    return {.socket = nullptr, .problem = "cannot make " + path + ": " + ErrnoText()};
  }
  OpenResult result;
  result.socket.reset(new ListenSocket(std::move(socket), path, file));
  if (::listen(result.socket->fd(), kBacklog) != 0) {
    result.problem = "cannot listen on " + path + ": " + ErrnoText();
    result.socket.reset();
  }
  return result;
}

// No other daemon replaces the file between the lstat and the unlink: we still listen on it.
void ListenSocket::RemoveFile() {
  if (std::exchange(removed_, true)) return;
  struct stat file {};
  if (::lstat(path_.c_str(), &file) != 0) return;
  if (file.st_dev == device_ && file.st_ino == inode_) ::unlink(path_.c_str());
}

std::string RemoveStaleSocket(const std::string& path) {
  const std::optional<sockaddr_un> address = AddressOf(path);
  if (!address) return "the socket's path is empty or too long";
  const UniqueFd lock = LockDirectoryOf(path);
  if (!lock.valid()) return "cannot lock the directory of " + path + ": " + ErrnoText();
  return RemoveStaleLocked(path, *address);
}

}  // namespace keldo::plugind
