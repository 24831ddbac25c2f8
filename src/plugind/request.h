// The daemon's protocol: bytes of a connection to requests, and a request to its reply.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "plugind/index_store.h"

namespace keldo::plugind {

/// Longest request in bytes, without its newline.
inline constexpr std::size_t kMaxRequest = 65536;

/// One line of a connection.
struct RequestLine {
  std::string text;       ///< Without the newline; empty when it was too long.
  bool too_long = false;  ///< It is reported as soon as it is known, and the rest of it is dropped.
};

/// Collects bytes and gives them back line by line. Holds at most kMaxRequest bytes of an
/// unfinished line, whatever the client sends.
class RequestBuffer {
 public:
  void Append(std::string_view bytes);

  /// The next whole line, if there is one.
  [[nodiscard]] std::optional<RequestLine> Next();

  /// What follows the last newline, at the end of the connection; nothing when that is empty.
  [[nodiscard]] std::optional<RequestLine> Rest();

 private:
  [[nodiscard]] std::optional<RequestLine> NextUnfinished();

  std::string bytes_;
  std::size_t begin_ = 0;     // where the next line begins
  std::size_t searched_ = 0;  // up to here there is no newline
  bool dropping_ = false;     // within a line that was too long
};

/// The reply to a request, and why it was refused.
struct Answer {
  std::string reply;    ///< One JSON object without a newline; always carries "success".
  std::string problem;  ///< Text for the log; empty unless the request itself was wrong.
};

/// Answers the request in `text`. Every text gets an answer; nothing is thrown. A path in it may be
/// any bytes.
[[nodiscard]] Answer AnswerRequest(std::string_view text, IndexStore& store);

/// The answer to a line that is not a request.
[[nodiscard]] Answer Refusal(std::string problem);

}  // namespace keldo::plugind
