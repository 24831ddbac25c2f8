// Shared by many tests: a profile file, expected argument vectors, and checks of a photo's results.
#pragma once

#include <string>
#include <vector>

#include "e2e/sandbox.h"

namespace keldo::testing {

/// All six kinds: XL, B and M in phase 0, L and SM in phase 1, S in phase 2.
extern const char* const kSixKinds;

/// The words of a text, split at spaces, so that an argument vector fits on a readable line.
[[nodiscard]] std::vector<std::string> Words(const std::string& text);

/// The argument vectors of a program in the order of its starts, with XXXXXX in place of the random
/// part of temporary names.
[[nodiscard]] std::vector<std::vector<std::string>> Calls(const RunResult& run,
                                                          const std::string& program);

/// True if the first run of the converter rotates by the orientation tag.
[[nodiscard]] bool AutoOrients(const RunResult& run);

/// The metadata directory of a photo in the photo directory, and a file in it.
[[nodiscard]] std::string MetadataOf(const std::string& photo_name);
[[nodiscard]] std::string ThumbOf(const std::string& photo_name, const std::string& kind);
[[nodiscard]] std::string MarkerOf(const std::string& photo_name, const std::string& kind);

/// The sorted names "KELDOPHOTO_THUMB_<kind>.jpg".
[[nodiscard]] std::vector<std::string> ThumbNames(const std::string& kinds);
/// The sorted names "KELDOPHOTO_THUMB_<kind>.fail".
[[nodiscard]] std::vector<std::string> MarkerNames(const std::string& kinds);

/// Checks that every visible thumbnail in a directory is a complete JPEG file.
void ExpectNoBrokenThumbnail(const Sandbox& box, const std::string& directory);

/// Runs keldothumb on the photo directory from a shell that executes `then` as soon as a stand-in
/// was started, and prints the program's exit status. In `then`, "$!" is the program's process id.
[[nodiscard]] RunResult RunFromShell(Sandbox& box, const std::string& then);

/// The value of a key in the photo progress file; -1 if it has none.
[[nodiscard]] int Counter(const Sandbox& box, const std::string& key);
/// The lines of the thumbnail queue.
[[nodiscard]] std::vector<std::string> QueuedDirectories(const Sandbox& box);

/// A line at the error level.
[[nodiscard]] inline LogLine ErrorLine(std::string text) {
  return {3, std::move(text)};
}

}  // namespace keldo::testing
