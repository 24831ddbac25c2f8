#include <sys/socket.h>
#include <syslog.h>

#include <array>
#include <cerrno>
#include <optional>
#include <utility>

#include "plugind/server.h"

namespace keldo::plugind {
namespace {

constexpr std::size_t kReadSize = 16384;
// The most bytes of replies that wait for a client to read them. Beyond that, no request is read or
// answered.
constexpr std::size_t kMaxOutput = 65536;
// How many more times a client is read when the daemon stops: often enough to empty a socket's
// buffer, but not forever when a client never stops sending.
constexpr int kMaxLastReads = 64;

}  // namespace

Connection::Connection(UniqueFd socket, pid_t pid, Clock::time_point now)
    : socket_(std::move(socket)), pid_(pid), last_progress_(now) {}

bool Connection::wants_to_read() const {
  return input_ == Input::kOpen && output_.size() < kMaxOutput;
}

// One read, so that a busy client does not keep the others waiting.
bool Connection::Read() {
  std::array<char, kReadSize> bytes{};
  const ssize_t count = ::recv(socket_.get(), bytes.data(), bytes.size(), MSG_DONTWAIT);
  has_unread_ = count == static_cast<ssize_t>(bytes.size());
  if (count > 0) requests_.Append({bytes.data(), static_cast<std::size_t>(count)});
  if (count == 0) input_ = Input::kEnded;
  return count >= 0 || errno == EAGAIN || errno == EINTR;
}

bool Connection::AnswerNext(const Answerer& answerer) {
  std::optional<RequestLine> line = requests_.Next();
  // The last request may end with the stream instead of a newline.
  if (!line && input_ == Input::kEnded) line = requests_.Rest();
  if (!line) return false;
  const Answer answer = line->too_long
                            ? Refusal("it is longer than " + std::to_string(kMaxRequest) + " bytes")
                            : answerer(line->text);
  if (!answer.problem.empty()) {
    syslog(LOG_WARNING, "refused a request of process %d: %s", static_cast<int>(pid_),
           answer.problem.c_str());
  }
  output_.append(answer.reply).append("\n");
  return true;
}

// True when there was a request, and room for its reply.
bool Connection::AnswerAll(const Answerer& answerer) {
  bool answered = false;
  while (output_.size() < kMaxOutput && AnswerNext(answerer))
    answered = true;
  return answered;
}

bool Connection::Send(Clock::time_point now) {
  if (output_.empty()) return true;
  std::size_t sent = 0;
  while (sent < output_.size()) {
    const ssize_t count = ::send(socket_.get(), output_.data() + sent, output_.size() - sent,
                                 MSG_DONTWAIT | MSG_NOSIGNAL);
    if (count >= 0) {
      sent += static_cast<std::size_t>(count);
    } else if (errno == EAGAIN) {
      break;
    } else if (errno != EINTR) {
      return false;
    }
  }
  output_.erase(0, sent);
  if (output_.empty()) last_progress_ = now;
  return true;
}

bool Connection::Serve(const Answerer& answerer, Clock::time_point now) {
  if (wants_to_read() && !Read()) return false;
  if (!Send(now)) return false;
  while (AnswerAll(answerer)) {
    last_progress_ = now;
    if (!Send(now)) return false;
  }
  return input_ == Input::kOpen || wants_to_write();
}

bool Connection::ServeLast(const Answerer& answerer, Clock::time_point now) {
  for (int reads = 0; reads < kMaxLastReads; ++reads) {
    if (!Serve(answerer, now)) return false;
    if (!has_unread_ || !wants_to_read()) break;
  }
  if (input_ == Input::kOpen) input_ = Input::kStopped;
  return wants_to_write();
}

}  // namespace keldo::plugind
