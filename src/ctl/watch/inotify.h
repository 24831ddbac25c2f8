// The kernel's reports of what happens in directories.
#pragma once

#include <array>
#include <cstddef>
#include <string>
#include <string_view>

#include "util/handles.h"

namespace keldo::ctl {

/// One inotify instance. Where the kernel gives none, it is there all the same, and watches
/// nothing.
class Inotify {
 public:
  Inotify();
  /// Takes an instance over; -1 with errno set where there was none to be had.
  explicit Inotify(int fd);
  virtual ~Inotify() = default;
  Inotify(const Inotify&) = delete;
  Inotify& operator=(const Inotify&) = delete;

  /// Readable when there are events; -1 without an instance.
  [[nodiscard]] int fd() const { return fd_.get(); }

  /// Watches a directory, links followed. Returns the number of the watch, which is the one it had
  /// already where the same directory is watched; else -1 with errno set.
  [[nodiscard]] virtual int Add(const std::string& directory);
  virtual void Remove(int watch);

  /// The next events, as the kernel writes them; empty when there are none. Valid until the next
  /// call.
  [[nodiscard]] std::string_view Read();

 private:
  static constexpr std::size_t kBufferSize = 65536;

  UniqueFd fd_;
  int error_ = 0;
  alignas(8) std::array<char, kBufferSize> buffer_{};
};

/// What to tell a person when directories cannot be watched: which limit is reached and how it is
/// raised. `error` is the errno value of Inotify::Add.
[[nodiscard]] std::string ShortageText(int error);

}  // namespace keldo::ctl
