// Serving many clients in one thread.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>

#include "plugind/listen_socket.h"
#include "plugind/request.h"
#include "util/deadline.h"
#include "util/handles.h"

namespace keldo::plugind {

/// Gives the answer to one request.
using Answerer = std::function<Answer(std::string_view request)>;

/// A connected client: reads its requests, has them answered and sends the replies, never waiting.
/// Stops reading from a client that does not read its replies, which bounds the memory it takes.
/// Refused requests are logged.
class Connection {
 public:
  /// Takes a non-blocking stream socket; `pid` is the client's, for the log.
  Connection(UniqueFd socket, pid_t pid, Clock::time_point now);

  /// Reads, answers and sends without waiting. False when the client is to be dropped: it has gone,
  /// or it has closed its side and everything is answered.
  [[nodiscard]] bool Serve(const Answerer& answerer, Clock::time_point now);

  /// Reads what the client has already sent, answers the whole requests in it and reads no more.
  /// False as above.
  [[nodiscard]] bool ServeLast(const Answerer& answerer, Clock::time_point now);

  /// What Serve is waiting for.
  [[nodiscard]] bool wants_to_read() const;
  [[nodiscard]] bool wants_to_write() const { return !output_.empty(); }

  /// When the last request was complete or the client had read the last reply.
  [[nodiscard]] Clock::time_point last_progress() const { return last_progress_; }

  [[nodiscard]] int fd() const { return socket_.get(); }
  [[nodiscard]] pid_t pid() const { return pid_; }

 private:
  enum class Input { kOpen, kEnded, kStopped };

  [[nodiscard]] bool Read();
  [[nodiscard]] bool AnswerNext(const Answerer& answerer);
  [[nodiscard]] bool AnswerAll(const Answerer& answerer);
  [[nodiscard]] bool Send(Clock::time_point now);

  UniqueFd socket_;
  pid_t pid_;
  Clock::time_point last_progress_;
  Input input_ = Input::kOpen;
  bool has_unread_ = false;  // the last read filled its buffer
  RequestBuffer requests_;
  std::string output_;
};

/// Limits on each client and on all of them.
struct ServerLimits {
  std::size_t max_clients = 64;
  /// How long a client may neither complete a request nor read its replies before it is dropped.
  std::chrono::milliseconds idle_time{30000};
  /// How long the daemon waits for clients to read their last replies when it stops.
  std::chrono::milliseconds stop_time{2000};
};

/// Serves all clients of a socket until it is asked to stop. Logs the clients that it rejects or
/// drops. Throws std::system_error when a system call fails that it cannot do without.
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
  void ServeUntil(Clock::time_point until);
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
  bool turning_away_ = false;  // logged
  std::optional<Clock::time_point> accept_again_;
  std::unordered_map<int, Connection> clients_;
};

}  // namespace keldo::plugind
