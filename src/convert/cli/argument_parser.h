// The command lines that are converted here.
//
//   [-define registry:temporary-path=DIR] [-limit thread 1] INPUT [-profile ICC] GROUPS
//
// GROUPS is one of
//   OPTIONS OUTPUT
//   ( -clone 0 OPTIONS -write OUTPUT ) -delete 0 [( +clone OPTIONS -write OUTPUT +delete )]...
//       OPTIONS OUTPUT
//
// and OPTIONS, in this order,
//   [-define jpeg:size=WxH] -thumbnail WxH>[^] -quality Q [+profile !icc,*] [-flatten]
//       [-auto-orient] [-rotate DEGREES] [-flop] [-unsharp RxS+G+T] [-colorspace sRGB|YCbCr]
//
// -quality is not optional: without it, the quality is the one that a JPEG source was made with.
//
// Where a file name is expected, every argument is one, whatever it looks like: "%d", "[1]", "*",
// ':' and a leading '-', '+' or '@' mean nothing. The exceptions look like options: "-" alone, and
// "-" or "+" followed by letters and hyphens alone. Write "./-strip" for a photo called "-strip".
// Outputs have a JPEG file's extension.
#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "convert/pixels/plan.h"

namespace keldo::convert {

/// A command line that was understood.
struct Command {
  Plan plan;
  std::vector<std::size_t> inputs;   ///< which arguments name files that are read
  std::vector<std::size_t> outputs;  ///< which arguments name files that are written
};

/// Parses the arguments of one run (argv[0] not among them). Nothing for any command line that is
/// not exactly of the form above; ImageMagick runs those.
[[nodiscard]] std::optional<Command> ParseCommand(std::span<const std::string> arguments);

}  // namespace keldo::convert
