// The daemon as a child of a test, and clients that talk to it byte by byte.
#pragma once

#include <sys/types.h>

#include <string>
#include <string_view>
#include <vector>

#include "support/temp_dir.h"
#include "util/handles.h"

namespace keldo::plugind {

/// A connection to a local socket. Each call throws std::runtime_error after ten seconds.
class Client {
 public:
  explicit Client(const std::string& socket_path);

  /// False when the other side has closed.
  bool Send(std::string_view bytes);
  /// Shuts down the sending side.
  void EndSending();
  /// The next line without its newline; "(closed)" when the other side has closed.
  [[nodiscard]] std::string Line();
  [[nodiscard]] int fd() const { return fd_.get(); }

 private:
  UniqueFd fd_;
  std::string received_;
};

/// keldoindexplugind with a socket, a database and a log in a directory of its own.
class DaemonProcess {
 public:
  using Arguments = std::vector<std::string>;

  DaemonProcess() = default;
  ~DaemonProcess();
  DaemonProcess(const DaemonProcess&) = delete;
  DaemonProcess& operator=(const DaemonProcess&) = delete;

  /// Starts it with these arguments besides its socket, database and log; waits until it listens.
  void Start(const Arguments& more = {});
  /// Starts it where it cannot serve and returns its exit status.
  [[nodiscard]] int Run(const Arguments& more = {});
  void Signal(int signal) const;
  /// Its exit status, or minus the number of the signal that ended it.
  [[nodiscard]] int Wait();

  [[nodiscard]] std::string socket() const { return dir_.path() + "/sock"; }
  [[nodiscard]] std::string database() const { return dir_.path() + "/index/index.db"; }
  [[nodiscard]] std::string dir() const { return dir_.path(); }
  [[nodiscard]] pid_t pid() const { return pid_; }
  /// What all daemons of this directory have logged so far.
  [[nodiscard]] std::string Log() const;
  /// How often the log has this text.
  [[nodiscard]] int Logged(const std::string& text) const;

 private:
  void Spawn(const Arguments& more);

  testing::TempDir dir_;
  pid_t pid_ = -1;
};

}  // namespace keldo::plugind
