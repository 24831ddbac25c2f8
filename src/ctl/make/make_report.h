// Running a maker, and reporting on it to people and scripts.
#pragma once

#include <chrono>
#include <vector>

#include "ctl/console.h"
#include "ctl/make/maker.h"

namespace keldo::ctl {

/// Shows the progress of a run: one line, rewritten, on a terminal; else a line every ten seconds.
class ProgressLine {
 public:
  explicit ProgressLine(Console& console) : console_(console) {}

  void Show(const MakeProgress& progress);
  /// Removes the line from the terminal.
  void Clear();

 private:
  Console& console_;
  std::chrono::steady_clock::duration last_line_{};
  bool shown_ = false;
};

/// "12 of 340 photos, 1 failed, 14.2 thumbnails/s, 3 min left".
[[nodiscard]] std::string ProgressText(const MakeProgress& progress);

/// Runs a Maker that shows its progress on the console and stops on Ctrl-C, SIGTERM or SIGHUP. Then
/// removes the directories that are complete from the work queue, which would ask for them again.
[[nodiscard]] MakeOutcome MakeWithProgress(const MakeOptions& options, PhotoScanner& scanner,
                                           std::vector<DirectoryState> directories,
                                           Console& console);

/// Prints the summary: what was made, and each photo that failed or was left undone, with the
/// reason. Returns the exit status: 0 if nothing is missing, else 1.
[[nodiscard]] int ReportOutcome(Console& console, const MakeOutcome& outcome, bool json);

}  // namespace keldo::ctl
