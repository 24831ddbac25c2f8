#include "e2e/unix_socket.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <cstring>
#include <stdexcept>

namespace keldo::testing {

UniqueFd BindUnixSocket(const std::string& path, int type) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.size() >= sizeof address.sun_path) throw std::runtime_error("too long: " + path);
  std::memcpy(address.sun_path, path.data(), path.size());
  UniqueFd socket(::socket(AF_UNIX, type | SOCK_CLOEXEC, 0));
  if (!socket.valid() ||
      ::bind(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
      ::chmod(path.c_str(), 0666) != 0) {
    throw std::runtime_error("cannot bind a socket to " + path);
  }
  return socket;
}

}  // namespace keldo::testing
