// Owners of what the system opens: descriptors, streams, directories.
#pragma once

#include <dirent.h>
#include <unistd.h>

#include <cstdio>
#include <memory>
#include <utility>

namespace keldo {

/// Owns one descriptor; -1 means none.
class UniqueFd {
 public:
  UniqueFd() = default;
  explicit UniqueFd(int fd) : fd_(fd) {}
  UniqueFd(UniqueFd&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  UniqueFd& operator=(UniqueFd&& other) noexcept {
    if (this != &other) reset(std::exchange(other.fd_, -1));
    return *this;
  }
  UniqueFd(const UniqueFd&) = delete;
  UniqueFd& operator=(const UniqueFd&) = delete;
  ~UniqueFd() { reset(); }

  [[nodiscard]] int get() const { return fd_; }
  [[nodiscard]] bool valid() const { return fd_ >= 0; }
  /// Gives the descriptor up to the caller.
  [[nodiscard]] int release() { return std::exchange(fd_, -1); }
  /// Closes what is held and takes `fd` instead.
  void reset(int fd = -1) {
    if (fd_ >= 0) ::close(fd_);
    fd_ = fd;
  }

 private:
  int fd_ = -1;
};

struct CloseDirectory {
  void operator()(DIR* directory) const { ::closedir(directory); }
};
struct CloseFile {
  void operator()(FILE* file) const { static_cast<void>(std::fclose(file)); }
};

/// An open directory stream, closed when it goes.
using UniqueDir = std::unique_ptr<DIR, CloseDirectory>;
/// An open file stream, closed when it goes. Where the success of the last write matters, release
/// it and look at fclose's result.
using UniqueFile = std::unique_ptr<FILE, CloseFile>;

}  // namespace keldo
