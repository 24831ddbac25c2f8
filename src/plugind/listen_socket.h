// The daemon's socket in a directory that every user may write to.
#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <memory>
#include <string>

#include "util/handles.h"

namespace keldo::plugind {

/// A listening local socket that only root and its own user may connect to. Its file is removed
/// with it, if it is still the same file.
class ListenSocket {
 public:
  struct OpenResult;

  /// Listens on `path`. A socket that a daemon left behind there is removed first, but only when it
  /// belongs to root or to us and nobody answers on it; anything else is left alone. Symbolic links
  /// are not followed. Silent.
  [[nodiscard]] static OpenResult Open(const std::string& path);

  ~ListenSocket();
  ListenSocket(const ListenSocket&) = delete;
  ListenSocket& operator=(const ListenSocket&) = delete;

  /// Removes the file: nobody can connect any more, but clients that are connected are still
  /// served.
  void RemoveFile();

  [[nodiscard]] int fd() const { return socket_.get(); }

 private:
  ListenSocket(UniqueFd socket, std::string path, const struct stat& file);

  UniqueFd socket_;
  std::string path_;
  dev_t device_;
  ino_t inode_;
  bool removed_ = false;
};

/// A listening socket, or why there is none.
struct ListenSocket::OpenResult {
  std::unique_ptr<ListenSocket> socket;
  std::string problem;  ///< Text for a person; empty on success.
};

/// Removes a socket that a daemon left behind at `path`, under the conditions above. Returns why it
/// could not, or an empty text, also where there is no such file. Silent.
[[nodiscard]] std::string RemoveStaleSocket(const std::string& path);

/// Whether a client of user `peer` is served by a daemon of user `own`.
[[nodiscard]] constexpr bool IsUserServed(uid_t peer, uid_t own) {
  return peer == 0 || peer == own;
}

}  // namespace keldo::plugind
