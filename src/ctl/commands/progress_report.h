// keldothumbctl progress: the indexer's counters.
#pragma once

#include "ctl/console.h"

namespace keldo::ctl {

/// How much of something is to be done, and how much is done.
struct Counter {
  int total = 0;
  int completed = 0;

  /// The part that is done, 0 without a total.
  [[nodiscard]] double Fraction() const;
};

struct Counters {
  Counter photos;
  Counter thumbnails;
  Counter videos;
};

/// Reads the progress files; zeros where there are none.
[[nodiscard]] Counters ReadCounters();

/// Prints the counters. Returns the exit status.
[[nodiscard]] int PrintCounters(const Counters& counters, bool json, Console& console);

}  // namespace keldo::ctl
