// Serving many clients in one thread.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <unordered_map>

#include "plugind/connection.h"
#include "plugind/listen_socket.h"
#include "util/handles.h"

namespace keldo::plugind {

/// What one client, and all of them, may take.
struct ServerLimits {
  std::size_t max_clients = 64;
  /// A client that neither completes a request nor takes its replies for so long is dropped.
  std::chrono::milliseconds idle_time{30000};
  /// How long clients may take over their last replies when the daemon stops.
  std::chrono::milliseconds stop_time{2000};
};

/// Serves all clients of a socket until it is told to stop. Clients that are turned away or dropped
/// are logged. Throws std::system_error where the system refuses to go on.
class Server {
 public:
  /// `socket` must live longer; `answerer` is called for one request at a time.
  Server(ListenSocket& socket, Answerer answerer, ServerLimits limits);

  /// Serves until `stop_fd` is readable; then removes the socket's file, sends the replies to what
  /// has been received, and returns.
  void Run(int stop_fd);

 private:
  void Watch(int operation, int fd, std::uint32_t events);
  void WatchClient(int operation, const Connection& client);
  void Turn(Clock::time_point until);
  void Accept();
  void Admit(UniqueFd socket);
  void PauseAccepting();
  void ResumeAccepting(Clock::time_point now);
  void ServeClient(int fd);
  void DropIdleClients(Clock::time_point now);
  [[nodiscard]] Clock::time_point NextDeadline() const;
  void Finish();

  ListenSocket& socket_;
  Answerer answerer_;
  ServerLimits limits_;
  UniqueFd epoll_;
  int stop_fd_ = -1;
  bool stopping_ = false;
  bool turning_away_ = false;  // said in the log
  std::optional<Clock::time_point> accept_again_;
  std::unordered_map<int, Connection> clients_;
};

}  // namespace keldo::plugind
