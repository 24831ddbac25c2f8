// One client of the daemon.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

#include "plugind/request.h"
#include "plugind/request_buffer.h"
#include "util/handles.h"

namespace keldo::plugind {

using Clock = std::chrono::steady_clock;

/// Gives the answer to one request.
using Answerer = std::function<Answer(std::string_view request)>;

/// A connected client: reads its requests, has them answered and sends the replies, never waiting.
/// A client that does not read its replies is not read from either, so what is kept of it has an
/// upper limit. Refused requests are logged.
class Connection {
 public:
  /// Takes a non-blocking stream socket; `pid` is the client's, for the log.
  Connection(UniqueFd socket, pid_t pid, Clock::time_point now);

  /// Does what can be done without waiting. False when the client is to be dropped: it has gone, or
  /// it has closed its side and everything is answered.
  [[nodiscard]] bool Serve(const Answerer& answerer, Clock::time_point now);

  /// Takes what the client has sent already, answers the whole requests of it and reads no more.
  /// False as above.
  [[nodiscard]] bool ServeLast(const Answerer& answerer, Clock::time_point now);

  /// What Serve is waiting for.
  [[nodiscard]] bool wants_to_read() const;
  [[nodiscard]] bool wants_to_write() const { return !output_.empty(); }

  /// When the last request was complete or the last reply was taken.
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

}  // namespace keldo::plugind
