// Reading what another process writes.
#pragma once

#include <chrono>
#include <cstdio>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "util/deadline.h"

namespace keldo::process {

/// Reads from a pipe until a deadline. A plain read would hang with a child that hangs. Termination
/// requests are let in while it waits. Silent.
class StreamReader {
 public:
  /// Reads from `fd`, which must stay open meanwhile.
  StreamReader(int fd, Clock::time_point deadline) : fd_(fd), deadline_(deadline) {}
  /// Reads from a stream that was just opened on a child's output, until the deadline of children.
  explicit StreamReader(FILE* stream);

  /// Waits for output and reads some of it. Returns the number of bytes; 0 at the end of the
  /// output; -1 when it cannot be read, or not before the deadline.
  [[nodiscard]] ssize_t Read(std::span<char> block);
  /// The next line with its newline, or the next `longest` bytes of a longer one. Nothing when no
  /// output is left, or none comes before the deadline. Not to be mixed with Read.
  [[nodiscard]] std::optional<std::string> ReadLine(std::size_t longest);

 private:
  int fd_;
  Clock::time_point deadline_;
  std::string unread_;
};

/// Takes an integer off the front of `text`, with the white space before it, as scanf's %d does: a
/// number that no int holds becomes another one. Nothing when `text` does not begin with one.
[[nodiscard]] std::optional<int> TakeInteger(std::string_view& text);

/// What a program wrote, and how it ended.
struct ProgramOutput {
  std::string problem;  ///< Why it could not be started, or that it had to be ended; else empty.
  int status = -1;      ///< Its exit status; 128 plus the signal's number when a signal ended it.
  std::string text;     ///< What it wrote to standard output and standard error, up to 1 MiB.

  /// The first line that is not empty.
  [[nodiscard]] std::string FirstLine() const;
};

/// Runs `program` with an empty standard input, and kills it with its group at the deadline.
/// Silent.
[[nodiscard]] ProgramOutput RunForOutput(const std::string& program,
                                         const std::vector<std::string>& arguments,
                                         std::chrono::milliseconds deadline);

}  // namespace keldo::process
