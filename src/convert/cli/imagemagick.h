// Running ImageMagick in our place.
#pragma once

#include <string>
#include <vector>

#include "convert/cli/argument_parser.h"

namespace keldo::convert {

/// Where ImageMagick and its policy are.
struct ImageMagick {
  std::string program = "/usr/bin/convert";
  /// The folder with our policy.xml. Where it is missing, "../share/convert-thumb" beside our own
  /// program is used, as in a build folder.
  std::string policy = "/usr/keldo/share/convert-thumb";
  /// A path that leads to our own program.
  std::string ourselves = "/proc/self/exe";
};

/// Runs ImageMagick with the same arguments (argv[0] not among them) under our policy, as a child
/// that dies with us, and returns the exit status for our own. `what` says what needs it, for the
/// message when it is not installed. Status 1 with a message when it cannot be run.
[[nodiscard]] int RunImageMagick(const ImageMagick& magick,
                                 const std::vector<std::string>& arguments,
                                 const std::string& what);

/// The same for a command line that was understood: ImageMagick gets the file names in it as plain
/// names, without the meaning that it would read into them. The outputs must exist.
[[nodiscard]] int RunImageMagick(const ImageMagick& magick,
                                 const std::vector<std::string>& arguments, const Command& command,
                                 const std::string& what);

}  // namespace keldo::convert
