// Output for people and for scripts.
#pragma once

#include <json/value.h>

#include <cstdint>
#include <iosfwd>
#include <string>
#include <string_view>
#include <vector>

namespace keldo::ctl {

/// What the streams are connected to, and how much to print.
struct ConsoleStyle {
  bool colour = false;         ///< Colour the output.
  bool live_progress = false;  ///< Rewrite one line of the error stream.
  bool quiet = false;          ///< Print less: only failures and totals.
  bool verbose = false;
};

/// The two streams of a command, and what may be written to them.
class Console {
 public:
  enum class Colour { kRed, kYellow, kGreen, kBold, kDim };

  Console(std::ostream& out, std::ostream& err) : out_(out), err_(err) {}

  [[nodiscard]] std::ostream& out() { return out_; }
  [[nodiscard]] std::ostream& err() { return err_; }
  [[nodiscard]] const ConsoleStyle& style() const { return style_; }
  void set_style(const ConsoleStyle& style) { style_ = style; }

  /// The text in a colour if colours are on, else unchanged.
  [[nodiscard]] std::string Coloured(Colour colour, std::string_view text) const;

  /// Writes "keldothumbctl: PATH: PROBLEM" to the error stream and returns 1, the exit status.
  int Fail(std::string_view path, std::string_view problem);
  /// Writes "keldothumbctl: TEXT" to the error stream.
  void Warn(std::string_view text);

  /// Writes the value as one line of JSON.
  void PrintJson(const Json::Value& value);

  /// Flushes the output. Returns `status`, or 1 after a message if the output could not be written.
  [[nodiscard]] int Finish(int status);

 private:
  std::ostream& out_;
  std::ostream& err_;
  ConsoleStyle style_;
};

/// A file name as a terminal can show it: control characters and bytes that are not UTF-8 become
/// "\n", "\t", "\x1b" and the like, and a backslash becomes "\\". Other names stay unchanged.
[[nodiscard]] std::string ShownName(std::string_view name);

/// An object with the path as "path". JSON has to be UTF-8: where the path is not, U+FFFD stands
/// for each byte that does not belong, and "path_bytes" has the path in hexadecimal.
[[nodiscard]] Json::Value JsonPath(std::string_view path);

/// A number of photos or thumbnails with its word: "1 photo", "1,204 photos".
[[nodiscard]] std::string Counted(long number, std::string_view singular);
/// "1,204".
[[nodiscard]] std::string Grouped(long number);

/// A size in bytes: "0 bytes", "812 bytes", "1.5 KiB", "12 MiB".
[[nodiscard]] std::string SizeText(std::int64_t bytes);

/// Rows of text in columns, aligned to the right except column `text_column`. Widths are counted in
/// characters, not in bytes.
[[nodiscard]] std::string Table(const std::vector<std::vector<std::string>>& rows,
                                std::size_t text_column);

}  // namespace keldo::ctl
